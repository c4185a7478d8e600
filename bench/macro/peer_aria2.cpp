// A download manager that takes orders over HTTP: a download is ordered, asked for until it is complete, and read from its
// file in memory.

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "macro/libcurl.h"
#include "macro/peers.h"
#include "macro/ports.h"

namespace bench {

namespace {

class Aria2 : public Getter {
public:
    Aria2(RunningPeer aria2, const std::string& directory)
        : mAria2(std::move(aria2)),
          mRpc("http://127.0.0.1:" + std::to_string(mAria2.port) + "/jsonrpc"),
          mFile(directory + "/aria2-body") {}
    std::size_t get(const std::string& url) override {
        const std::string ordered = call("aria2.addUri", "[[\"" + url + R"("],{"out":"aria2-body"}])");
        const std::string id = textAfter(ordered, "\"result\":\"");
        for (;;) {
            const std::string told = call("aria2.tellStatus", "[\"" + id + "\",[\"status\"]]");
            const std::string status = textAfter(told, "\"status\":\"");
            if (status == "complete") {
                break;
            }
            if (status != "active" && status != "waiting") {
                die("aria2: " + told);
            }
        }
        return takeFile();
    }
    [[nodiscard]] std::vector<pid_t> servants() const override { return {mAria2.process.pid()}; }

private:
    std::string call(const std::string& method, const std::string& parameters) {
        const std::string order =
            R"({"jsonrpc":"2.0","id":"1","method":")" + method + R"(","params":)" + parameters + "}";
        std::string reply;
        curl_easy_setopt(mCurl.handle(), CURLOPT_COPYPOSTFIELDS, order.c_str());
        mCurl.get(mRpc, &reply);
        return reply;
    }
    static std::string textAfter(const std::string& reply, const std::string& key) {
        const std::size_t at = reply.find(key);
        const std::size_t begin = at + key.size();
        return at == std::string::npos ? "" : reply.substr(begin, reply.find('"', begin) - begin);
    }
    std::size_t takeFile() {
        const int file = ::open(mFile.c_str(), O_RDONLY | O_CLOEXEC);
        struct stat status {};
        if (file < 0 || ::fstat(file, &status) != 0) {
            die("aria2's file is not there");
        }
        const auto size = static_cast<std::size_t>(status.st_size);
        void* const data = ::mmap(nullptr, size, PROT_READ, MAP_PRIVATE | MAP_POPULATE, file, 0);
        if (data != MAP_FAILED) {
            touch(data, size);
            (void)::munmap(data, size);
        }
        (void)::close(file);
        (void)::unlink(mFile.c_str());
        return size;
    }

    RunningPeer mAria2;
    std::string mRpc;
    std::string mFile;
    Libcurl mCurl;
};

const RegisterExchange kRow(gettingRow("aria2", kEverywhere,
                                       [](const Stage& stage, std::string* why) -> std::unique_ptr<Getter> {
                                           RunningPeer aria2 = startAria2(stage, why);
                                           return aria2.port != 0
                                                      ? std::make_unique<Aria2>(std::move(aria2), stage.directory)
                                                      : nullptr;
                                       }));

}  // namespace

RunningPeer startAria2(const Stage& stage, std::string* why) {
    const std::string program = findProgram("aria2c");
    if (program.empty()) {
        *why = "it is not installed";
        return {};
    }
    RunningPeer aria2;
    const int port = freePort();
    aria2.process = Process::start(
        {program, "--no-conf", "--quiet", "--enable-rpc", "--rpc-listen-port=" + std::to_string(port),
         "--dir=" + stage.directory, "--file-allocation=none", "--allow-overwrite=true", "--auto-file-renaming=false",
         "--ca-certificate=" + stage.caFile, "--disable-ipv6=true", "--split=1", "--max-download-result=1"});
    if (!waitFor(&aria2.process, [&] { return listensAt(port); })) {
        *why = "it does not come up";
        return {};
    }
    aria2.port = port;
    return aria2;
}

}  // namespace bench
