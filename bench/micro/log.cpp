// A log call that is not wanted, which is what nearly all of them are.

#include "base/log.h"

#include "harness/harness.h"

namespace bench {

namespace {

Loop filtered() {
    zv_loc_fw::log_set_global_level(zv_loc_fw::EL_WARNING);
    return [](std::size_t n) {
        for (; n > 0; --n) {
            zv_loc_fw::log_debug("Bench", "a value: %zu", n);
        }
    };
}

const Register kRow(Row{"log/filtered", kOurs, filtered});

}  // namespace

}  // namespace bench
