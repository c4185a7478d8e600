#include <sys/stat.h>

#include <filesystem>

#include "e2e/E2eTest.h"
#include "support/HttpServer.h"
#include "support/files.h"

namespace test_support {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

class FilesTest : public E2eTest {
protected:
    void expectPosted(const std::string& client_name) {
        TestClient client(client_name);
        const Card request = client.post(kCs, mHttp.url("/echo"), "body of " + client_name, 7);
        expectCard(client.exchange(request), result(request, 200, "body of " + client_name));
    }

    HttpServer mHttp;
    const std::string mRoot = std::string(device_files::kDataDirectory) + "/";
};

TEST_F(FilesTest, TraceIsAppendedWhenAskedForAndRemovedOtherwise) {
    const std::string trace = mRoot + "curl_verbose.log";
    for (const char* value : {"1", "0", "2"}) {
        SCOPED_TRACE(value);
        writeFile(trace, "of an earlier run\n");
        configure({{"CAIRN_CURL_VERBOSE_ENABLED", value}});
        start();
        expectPosted("client");
        stop();
        if (value == std::string("1")) {
            EXPECT_THAT(readFile(trace), AllOf(StartsWith("of an earlier run\n"), HasSubstr("> POST /echo HTTP/1.1")));
        } else {
            EXPECT_FALSE(std::filesystem::exists(trace));
        }
    }
}

mode_t rightsOf(const std::string& path) {
    struct stat file {};
    EXPECT_EQ(stat(path.c_str(), &file), 0) << path;
    return file.st_mode & 0777;
}

TEST_F(FilesTest, TraceIsTheOwnersAloneAndItsDirectoryGetsNoSeparator) {
    configure({{"CAIRN_CURL_VERBOSE_ENABLED", "0x1"}, {"CAIRN_AP_ROOT_DIR", "\"/data/x \""}});
    start();
    EXPECT_EQ(rightsOf("/data/x curl_verbose.log"), 0600U);
}

TEST_F(FilesTest, ArchiveKeepsBodiesOfTheChosenClients) {
    configure({{"ENABLE_SAVE_SERVER_REQ_AND_RESP_MASK", "6"}});
    writeFile(mRoot + "APIC_req_7.bin", "of an earlier run, for everybody to read");
    start();
    for (const char* client : {"Marlow-PE", "KV-CS", "APIC", "KV-CS2"}) {
        expectPosted(client);
        const bool chosen = client == std::string("KV-CS") || client == std::string("APIC");
        for (const char* kind : {"_req_7.bin", "_resp_7.bin"}) {
            const std::string path = mRoot + client + kind;
            ASSERT_EQ(std::filesystem::exists(path), chosen) << path;
            EXPECT_TRUE(!chosen || readFile(path) == std::string("body of ") + client) << path;
            EXPECT_TRUE(!chosen || rightsOf(path) == 0600U) << path;
        }
    }
}

TEST_F(FilesTest, MissingDirectoryOrFullDiskHarmsNoTransfer) {
    std::filesystem::create_symlink("/dev/full", mRoot + "curl_verbose.log");
    configure({{"CAIRN_CURL_VERBOSE_ENABLED", "1"}});
    start();
    expectPosted("client");
    stop();

    configure({{"CAIRN_CURL_VERBOSE_ENABLED", "1"},
               {"ENABLE_SAVE_SERVER_REQ_AND_RESP_MASK", "7"},
               {"CAIRN_AP_ROOT_DIR", "/data/nowhere/"}});
    start();
    expectPosted("APIC");
    EXPECT_TRUE(agent().waitForLine("[InetAgentService-Static] fopen retval = 2, error: No such file or directory"));
    EXPECT_TRUE(agent().waitForLine("[KVIA] saveBlobToFile failed, result = -5", 2));
}

}  // namespace
}  // namespace test_support
