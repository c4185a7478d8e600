#include "transfer/ExchangeArchive.h"

#include <gmock/gmock.h>

#include <cstdint>
#include <filesystem>
#include <set>
#include <string>

#include "base/log.h"
#include "support/LogCapture.h"
#include "support/files.h"
#include "transfer/TransferSettings.h"

namespace {

using namespace zv_loc_fw;
using test_support::LogCapture;
using test_support::readFile;
using test_support::TempDir;

class ExchangeArchive : public testing::Test {
protected:
    void SetUp() override { log_set_global_level(EL_VERBOSE); }
    void TearDown() override { transferSettings() = {}; }

    static void save(const char* client, int32_t tx_id = 7, const std::string& body = "body") {
        saveBlobToFile("req", client, tx_id, body.data(), static_cast<uint32_t>(body.size()));
    }
    static std::set<std::string> filesIn(const std::string& directory) {
        std::set<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(directory)) {
            names.insert(entry.path().filename());
        }
        return names;
    }

    LogCapture log;
};

TEST_F(ExchangeArchive, TheMaskSaysWhoseBodiesAreKept) {
    const struct {
        int32_t mask;
        std::set<std::string> files;
    } cases[] = {
        {0, {}},
        {1, {"Marlow-PE_req_7.bin"}},
        {2, {"KV-CS_req_7.bin"}},
        {4, {"APIC_req_7.bin"}},
        {7, {"Marlow-PE_req_7.bin", "KV-CS_req_7.bin", "APIC_req_7.bin"}},
        {INT32_MIN, {}},
        {-1, {"Marlow-PE_req_7.bin", "KV-CS_req_7.bin", "APIC_req_7.bin"}},
    };
    for (const auto& test : cases) {
        const TempDir directory;
        transferSettings() = {.rootDirectory = directory.path().c_str(), .saveMask = test.mask};
        for (const char* client : {"Marlow-PE", "KV-CS", "APIC", "KV-CS2", "KV-C", "apic", ""}) {
            save(client);
        }
        EXPECT_EQ(filesIn(directory.path()), test.files) << test.mask;
    }
    EXPECT_THAT(log.texts(), testing::IsEmpty());
}

TEST_F(ExchangeArchive, FilesHoldTheBytesAndAreReplaced) {
    const TempDir directory;
    const std::string root = directory.path() + "/";  // as the default: the path then has two slashes
    transferSettings() = {.rootDirectory = root.c_str(), .saveMask = 2};
    save("KV-CS", -12, std::string("first\0and longer", 16));
    EXPECT_EQ(readFile(directory.file("KV-CS_req_-12.bin")), std::string("first\0and longer", 16));
    save("KV-CS", -12, "second");
    EXPECT_EQ(readFile(directory.file("KV-CS_req_-12.bin")), "second");
}

TEST_F(ExchangeArchive, FailuresAreLoggedWithTheirCode) {
    const TempDir directory;
    // Slashes lengthen the path up to "/KV-CS_req_7.bin".
    const auto root_for = [&](size_t path_length) {
        const size_t slashes = path_length - directory.path().size() - std::string("/KV-CS_req_7.bin").size();
        return directory.path() + std::string(slashes, '/');
    };
    const std::pair<std::string, const char*> cases[] = {
        {root_for(247), nullptr},
        {root_for(248), "[KVIA] saveBlobToFile failed, result = -4"},
        {directory.file("missing"), "[KVIA] saveBlobToFile failed, result = -5"},
    };
    for (const auto& [root, line] : cases) {
        log.clear();
        transferSettings() = {.rootDirectory = root.c_str(), .saveMask = 2};
        save("KV-CS");
        EXPECT_EQ(log.lines().size(), line != nullptr ? 1U : 0U) << root;
        EXPECT_TRUE(line == nullptr || log.contains(line)) << root;
    }
    const std::string full = directory.path();
    transferSettings() = {.rootDirectory = full.c_str(), .saveMask = 2};
    std::filesystem::create_symlink("/dev/full", directory.file("KV-CS_req_8.bin"));
    save("KV-CS", 8);  // buffered whole: shows when the file is closed
    save("KV-CS", 8, std::string(1000000, 'x'));
    EXPECT_EQ(log.count("[KVIA] saveBlobToFile failed, result = -6"), 2U);
}

}  // namespace
