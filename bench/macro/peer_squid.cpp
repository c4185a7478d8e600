// libcurl through a proxy on this machine, which caches nothing.

#include <grp.h>
#include <pwd.h>
#include <signal.h>
#include <sys/prctl.h>
#include <unistd.h>

#include "macro/libcurl.h"
#include "macro/peers.h"
#include "macro/ports.h"
#include "support/files.h"

namespace bench {

namespace {

class ThroughProxy : public Getter {
public:
    explicit ThroughProxy(RunningPeer squid) : mSquid(std::move(squid)) {
        const std::string proxy = "http://127.0.0.1:" + std::to_string(mSquid.port);
        curl_easy_setopt(mCurl.handle(), CURLOPT_PROXY, proxy.c_str());
    }
    std::size_t get(const std::string& url) override {
        std::string body;
        mCurl.get(url, &body);
        return body.size();
    }
    [[nodiscard]] std::vector<pid_t> servants() const override { return {mSquid.process.pid()}; }

private:
    RunningPeer mSquid;
    Libcurl mCurl;
};

const RegisterExchange kRow(gettingRow("squid", {"get/http"},
                                       [](const Stage& stage, std::string* why) -> std::unique_ptr<Getter> {
                                           RunningPeer squid = startSquid(stage, why);
                                           return squid.port != 0 ? std::make_unique<ThroughProxy>(std::move(squid))
                                                                  : nullptr;
                                       }));

/// Root's squid would change its user, and a process that does so outlives its parent: it gets its user beforehand.
void leaveRoot() {
    const passwd* const user = ::geteuid() == 0 ? ::getpwnam("proxy") : nullptr;  // NOLINT(concurrency-mt-unsafe)
    if (user != nullptr && ::setgroups(0, nullptr) == 0 && ::setgid(user->pw_gid) == 0 && ::setuid(user->pw_uid) == 0) {
        (void)::prctl(PR_SET_PDEATHSIG, SIGKILL);
    }
}

}  // namespace

RunningPeer startSquid(const Stage& stage, std::string* why) {
    const std::string program = findProgram("squid");
    if (program.empty()) {
        *why = "it is not installed";
        return {};
    }
    RunningPeer squid;
    const int port = freePort();
    const std::string configuration = stage.directory + "/squid.conf";
    test_support::writeFile(configuration, "http_port 127.0.0.1:" + std::to_string(port) +
                                               "\nhttp_access allow all\ncache deny all\naccess_log none\n"
                                               "cache_log /dev/null\npid_filename none\nnetdb_filename none\n"
                                               "shutdown_lifetime 0 seconds\nvisible_hostname localhost\n");
    squid.process = Process::start({program, "-N", "-f", configuration}, leaveRoot);
    if (!waitFor(&squid.process, [&] { return listensAt(port); })) {
        *why = "it does not come up";
        return {};
    }
    squid.port = port;
    return squid;
}

}  // namespace bench
