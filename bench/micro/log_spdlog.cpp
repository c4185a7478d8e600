// The same with spdlog: a logger of many threads, its level tested at run time.

#include <spdlog/logger.h>
#include <spdlog/sinks/null_sink.h>

#include <memory>

#include "harness/harness.h"

namespace bench {

namespace {

Loop filtered() {
    auto logger = std::make_shared<spdlog::logger>("Bench", std::make_shared<spdlog::sinks::null_sink_mt>());
    logger->set_level(spdlog::level::warn);
    return [logger](std::size_t n) {
        for (; n > 0; --n) {
            logger->debug("a value: {}", n);
        }
    };
}

const Register kRow(Row{"log/filtered", "spdlog", filtered});

}  // namespace

}  // namespace bench
