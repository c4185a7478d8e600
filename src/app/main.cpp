#include <curl/curl.h>
#include <sched.h>
#include <signal.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "app/AgentService.h"
#include "app/AgentSettings.h"
#include "app/CommandLine.h"
#include "app/StopSignals.h"
#include "base/log.h"
#include "platform/HeapPages.h"
#include "platform/Minijail.h"
#include "platform/posutil/pos_conf.h"
#include "transfer/TlsFiles.h"

namespace zv_loc_fw {

namespace {

constexpr const char* kTag = "main";
constexpr const char* kProcessTag = "KVIA";
constexpr const char* kBasePolicy = "/vendor/etc/seccomp_policy/gnss@2.0-base.policy";
constexpr const char* kAgentPolicy = "/vendor/etc/seccomp_policy/gnss@2.0-marlow-inet-agent.policy";
constexpr auto kEverything = static_cast<ERROR_LEVEL>(100);
constexpr int kCurlInitFailed = 9;

void ignoreSigpipe() {
    struct sigaction action {};
    action.sa_handler = SIG_IGN;
    int result = 0;
    if (sigemptyset(&action.sa_mask) != 0) {
        result = 2;
    } else if (sigaction(SIGPIPE, &action, nullptr) != 0) {
        result = 3;
    }
    if (result != 0) {
        log_error(kProcessTag, "ignore_SIGPIPE: failed %d [%s]", result, std::strerror(errno));
    }
}

/// A thread that is woken does not take the processor from the one that wakes it. A hand-over wakes before it unlocks, so
/// otherwise the woken thread, where both share a processor, mostly finds the lock held and has to sleep once more. All
/// threads to come inherit it; without it everything works the same. Whoever starts the agent may have chosen otherwise.
void wakeWithoutHaste() {
    const sched_param no_priority{};
    if (::sched_getscheduler(0) == SCHED_OTHER) {
        (void)::sched_setscheduler(0, SCHED_BATCH, &no_priority);
    }
}

int serve(const CommandLine& command_line, AgentSettings* settings) {
    if (const int status = settings->read(POS_PATH_MARLOW_CONF); status != 0) {
        return status;
    }
    ignoreSigpipe();
    settings->prepareTrace();
    getCertName();  // here, so that no worker has to make the choice
    if (curl_global_init(CURL_GLOBAL_ALL) != CURLE_OK) {
        return kCurlInitFailed;
    }
    return runAgentService(command_line.launchTriggerMask);
}

/// Every status leaves through here.
int leave(int status, AgentSettings* settings) {
    settings->release();
    if (status != 0) {
        log_error(kTag, "failed %d", status);
    }
    settings->closeTrace();
    curl_global_cleanup();  // also when it was never initialised: deliberate, and safe
    log_verbose(kTag, "Bye Bye");
    return status;
}

}  // namespace

}  // namespace zv_loc_fw

int main(int argc, char** argv) {
    using namespace zv_loc_fw;
    StopSignals::block();
    wakeWithoutHaste();
    platform::keepFreePages();
    ::umask(S_IRWXG | S_IRWXO);  // trace and archive may hold secrets
    android::SetUpMinijail(kBasePolicy, kAgentPolicy);
    const CommandLine command_line = parseCommandLine(argc, argv);
    log_set_global_tag(kProcessTag);
    log_set_global_level(kEverything);  // until the configuration says otherwise
    AgentSettings settings;
    return leave(serve(command_line, &settings), &settings);
}
