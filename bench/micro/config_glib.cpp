#include <glib.h>

#include <memory>

#include "harness/harness.h"
#include "micro/config_text.h"

namespace bench {

namespace {

Loop loading() {
    auto file = std::make_shared<TemporaryFile>(configText("[settings]"));
    return [file](std::size_t n) {
        for (; n > 0; --n) {
            GKeyFile* config = g_key_file_new();
            require(g_key_file_load_from_file(config, file->path(), G_KEY_FILE_NONE, nullptr) != 0);
            keep(config);
            g_key_file_free(config);
        }
    };
}

const Register kRow(Row{"config/load", "GKeyFile", loading});

}  // namespace

}  // namespace bench
