#include <gmock/gmock.h>
#include <sys/wait.h>

#include <csignal>
#include <cstdlib>
#include <string>
#include <vector>

#include "app/AgentService.h"
#include "app/AgentSettings.h"
#include "app/StopSignals.h"
#include "base/log.h"
#include "faults/Fault.h"
#include "support/DeviceFiles.h"
#include "support/LogCapture.h"
#include "transfer/TransferSettings.h"

/// What the process needs to start fails once, at each place in turn.
namespace fault_test {
namespace {

using namespace zv_loc_fw;
using testing::ElementsAre;

constexpr int kUntouched = 100;

/// A process that is told to stop before it starts, and so ends by itself when nothing is in its way.
[[noreturn]] void startWithFailure(Point point, int n) {
    test_support::device_files::reset();  // of what an earlier process left
    StopSignals::block();
    (void)kill(getpid(), SIGTERM);
    const Fault fault(point, {.nth = n, .error = EAGAIN, .on = On::ThisThread});
    const int status = runAgentService(1);
    std::exit(Fault::fired() ? status : kUntouched);
}

/// @return how the process ended, for each place in turn: exit statuses, and signals as negative numbers; neighbours
///         that are equal as one
std::vector<int> startsWithFailures(Point point) {
    std::vector<int> ends;
    int end = 0;
    for (int n = 1; end != kUntouched; ++n) {
        EXPECT_EXIT(
            startWithFailure(point, n),
            [&](int status) {
                end = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
                return true;
            },
            "");
        if (ends.empty() || ends.back() != end) {
            ends.push_back(end);
        }
    }
    return ends;
}

TEST(StartUpDeathTest, EachStepHasItsStatus) {
    // A name that could not be registered, or a worker that could not be furnished, does not stop the start. Without
    // the thread for signals, the signal that is waiting has its default effect.
    EXPECT_THAT(startsWithFailures(Point::NothrowNew),
                ElementsAre(11, 16, 22, 0, 22, 0, 22, 0, 25, 0, 25, 0, 25, -SIGTERM, kUntouched));
    EXPECT_THAT(startsWithFailures(Point::PthreadCreate), ElementsAre(22, 25, 32, 35, -SIGTERM, kUntouched));
}

TEST(StartUp, ConfigurationWithoutMemoryCountsAsAbsent) {
    test_support::device_files::writeMarlowConf({{"CAIRN_AP_ROOT_DIR", "/data/"}, {"DEBUG_GLOBAL_LOG_LEVEL", "5"}});
    std::vector<std::string> outcomes;
    for (bool fired = true; fired;) {
        log_set_global_level(EL_ERROR);
        const test_support::LogCapture log;
        AgentSettings settings;
        const Fault fault(Point::NothrowNew, {.nth = static_cast<int>(outcomes.size()) + 1});
        const int status = settings.read(test_support::device_files::kMarlowConf);
        outcomes.push_back(std::to_string(status) + " " + (status == 0 ? transferSettings().rootDirectory : ""));
        for (const std::string& line : log.texts()) {
            if (const size_t code = line.find("result ["); code != std::string::npos) {
                outcomes.back() += line.substr(code, line.find(']', code) + 1 - code);
            }
        }
        fired = Fault::fired();
    }
    const std::string absent = "0 /data/vendor/location/marlow/result [";
    // The second key finds room where the first one's texts are.
    EXPECT_THAT(outcomes,
                ElementsAre("2 ", absent + "4]", absent + "114]", absent + "113]", absent + "113]", "6 ", "0 /data/"));
}

}  // namespace
}  // namespace fault_test
