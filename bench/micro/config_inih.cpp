// The parser hands each pair to its caller, who has to keep it: here in a plain array of copies.

#include <ini.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "harness/harness.h"
#include "micro/config_text.h"

namespace bench {

namespace {

using Pairs = std::vector<std::pair<std::string, std::string>>;

int keepPair(void* pairs, const char* /*section*/, const char* name, const char* value) {
    static_cast<Pairs*>(pairs)->emplace_back(name, value);
    return 1;
}

Loop loading() {
    auto file = std::make_shared<TemporaryFile>(configText("# settings"));
    return [file](std::size_t n) {
        for (; n > 0; --n) {
            Pairs pairs;
            require(ini_parse(file->path(), keepPair, &pairs) == 0 && pairs.size() == kConfigPairs);
        }
    };
}

const Register kRow(Row{"config/load", "inih", loading});

}  // namespace

}  // namespace bench
