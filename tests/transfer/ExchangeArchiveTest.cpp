#include "transfer/ExchangeArchive.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

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
    const mode_t mask = umask(077);  // as start-up sets it
    save("KV-CS", -12, std::string("first\0and longer", 16));
    EXPECT_EQ(readFile(directory.file("KV-CS_req_-12.bin")), std::string("first\0and longer", 16));
    umask(mask);
    struct stat status {};
    ASSERT_EQ(stat(directory.file("KV-CS_req_-12.bin").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0600U);
    save("KV-CS", -12, "second");
    EXPECT_EQ(readFile(directory.file("KV-CS_req_-12.bin")), "second");
    saveBlobToFile("resp", "KV-CS", INT32_MAX, "r", 1);
    EXPECT_EQ(filesIn(directory.path()), (std::set<std::string>{"KV-CS_req_-12.bin", "KV-CS_resp_2147483647.bin"}));
}

TEST_F(ExchangeArchive, WithoutARootTheWorkingDirectoryServes) {
    const TempDir directory;
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(directory.path());
    transferSettings() = {.rootDirectory = nullptr, .saveMask = 2};
    save("KV-CS", 1);
    transferSettings().rootDirectory = "";
    save("KV-CS", 2);
    std::filesystem::current_path(before);
    EXPECT_EQ(filesIn(directory.path()), (std::set<std::string>{"KV-CS_req_1.bin", "KV-CS_req_2.bin"}));
}

TEST_F(ExchangeArchive, FailuresAreLoggedWithTheirCode) {
    const TempDir directory;
    const std::string missing = directory.file("missing");
    const std::string file = directory.file("file");
    test_support::writeFile(file, "");
    // Characters of the path around the directory: "/", "/KV-CS_req_7.bin" and the directory's own.
    const auto directory_for = [&](size_t path_length) {
        std::string root = directory.path();
        root.append(path_length - root.size() - std::string("/KV-CS_req_7.bin").size(), '/');
        return root;
    };
    const std::string longest = directory_for(247);
    const std::string too_long = directory_for(248);
    const struct {
        const std::string& root;
        const char* line;
    } cases[] = {
        {longest, nullptr},
        {too_long, "[KVIA] saveBlobToFile failed, result = -4"},
        {missing, "[KVIA] saveBlobToFile failed, result = -5"},
        {file, "[KVIA] saveBlobToFile failed, result = -5"},
    };
    for (const auto& test : cases) {
        log.clear();
        transferSettings() = {.rootDirectory = test.root.c_str(), .saveMask = 2};
        save("KV-CS");
        EXPECT_EQ(log.lines().size(), test.line != nullptr ? 1U : 0U) << test.root;
        EXPECT_TRUE(test.line == nullptr || log.contains(test.line)) << test.root;
    }
    EXPECT_EQ(filesIn(directory.path()), (std::set<std::string>{"KV-CS_req_7.bin", "file"}));
}

TEST_F(ExchangeArchive, AFullDiskIsAShortWrite) {
    if (access("/dev/full", W_OK) != 0) {
        GTEST_SKIP() << "no /dev/full";
    }
    const TempDir directory;
    transferSettings() = {.rootDirectory = directory.path().c_str(), .saveMask = 2};
    std::filesystem::create_symlink("/dev/full", directory.file("KV-CS_req_7.bin"));
    save("KV-CS");  // buffered whole: shows when the file is closed
    save("KV-CS", 7, std::string(1000000, 'x'));
    EXPECT_EQ(log.count("[KVIA] saveBlobToFile failed, result = -6"), 2U);
}

}  // namespace
