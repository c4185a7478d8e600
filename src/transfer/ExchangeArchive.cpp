#include "transfer/ExchangeArchive.h"

#include <sys/stat.h>

#include <cstdio>
#include <cstring>

#include "base/log.h"
#include "transfer/TransferSettings.h"

namespace zv_loc_fw {

namespace {

struct ArchivedClient {
    const char* name;
    uint32_t maskBit;
};

constexpr ArchivedClient kArchivedClients[] = {{"Marlow-PE", 1}, {"KV-CS", 2}, {"APIC", 4}};

constexpr size_t kPathSize = 248;

bool isArchived(const char* client) {
    const auto mask = static_cast<uint32_t>(transferSettings().saveMask);
    for (const ArchivedClient& archived : kArchivedClients) {
        if (std::strcmp(client, archived.name) == 0) {
            return (mask & archived.maskBit) != 0;
        }
    }
    return false;
}

int save(const char* kind, const char* client, int32_t tx_id, const void* data, uint32_t size) {
    char path[kPathSize] = {};
    const char* root = transferSettings().rootDirectory;
    // A root that ends in a slash, as the default does, gives a double one: deliberate.
    const int length = root != nullptr && root[0] != '\0'
                           ? std::snprintf(path, sizeof(path), "%s/%s_%s_%d.bin", root, client, kind, tx_id)
                           : std::snprintf(path, sizeof(path), "%s_%s_%d.bin", client, kind, tx_id);
    if (length < 0 || static_cast<size_t>(length) >= sizeof(path)) {
        return -4;
    }
    std::FILE* file = std::fopen(path, "we");
    if (file == nullptr) {
        return -5;
    }
    (void)::fchmod(::fileno(file), S_IRUSR | S_IWUSR);  // a file that lay there keeps its own mode otherwise
    const size_t written = std::fwrite(data, 1, size, file);
    const bool closed = std::fclose(file) == 0;  // a full disk may only show here
    return written == size && closed ? 0 : -6;
}

}  // namespace

void saveBlobToFile(const char* kind, const char* client, int32_t tx_id, const void* data, uint32_t size) {
    if (!isArchived(client)) {
        return;
    }
    const int result = save(kind, client, tx_id, data, size);
    if (result != 0) {
        log_error("KVIA", "saveBlobToFile failed, result = %d", result);
    }
}

}  // namespace zv_loc_fw
