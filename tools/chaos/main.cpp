// A run of the real agent through every fault at once, with a checker over every reply. See script/chaos, which starts
// it, and docs/testing.md.
//
// Why requests that must succeed can. A controller performs one request at a time, in the order of arrival, so whatever
// is slow delays everything behind it. Everything else takes milliseconds: the good requests are small or at most a
// megabyte on the loopback, and the failing ones fail at once. What takes seconds has to pass its controller's gate
// (Gate.h): two of them at most are on their way, the next one only some time after one of them is over. One turn
// through the gate costs the controller 5 seconds at most: a stalled transfer ends with its TIMEOUT-SEC of 3 to 5, and
// so do the tight requests that are sent with it, as their time runs from the same moment; where a request without a
// result keeps the controller, that lasts until its deadline, and 1.5 seconds more until the repair. So a request that
// arrives behind two full turns, the longest flood (250 quick ones, some seconds on a busy machine), everybody's open
// requests (6 for each client) and two receivers that do not read (half a second each) waits some 20 seconds; it is
// granted 90, and twice that under a sanitizer.

#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>

#include "Crowd.h"
#include "Mischief.h"
#include "Vitals.h"
#include "support/AgentProcess.h"
#include "support/DeviceFiles.h"
#include "support/files.h"

namespace chaos {
namespace {

struct Options {
    int seconds = 120;
    uint64_t seed = 1;
    std::string key = "both";
    int clients = 10;
    std::string agent;
    /// Where the logs of a failed run go.
    std::string keep;
};

/// How late a reply may be when everybody waits for nothing else.
constexpr auto kPatience = std::chrono::seconds(kSanitized ? 60 : 30);
/// More of them say nothing new.
constexpr size_t kMostViolations = 20;
/// The agent's log is kept in memory: a longer run is several, each with a seed of its own.
constexpr int kLongestRoundSec = 200;
constexpr double kLeastGood = 0.6;

/// Lets the actors play for some seconds, then waits for the replies they are owed.
void playFor(Stage& stage, Crowd& crowd, int seconds) {
    stage.stop = false;
    {
        const Mischief mischief(stage);
        crowd.start();
        const auto until = Clock::now() + std::chrono::seconds(seconds);
        while (Clock::now() < until && stage.ledger.violationCount() < kMostViolations) {
            stage.pause(200);
        }
        crowd.stop();
    }
    // A queue is looked through when a message comes: where a job that cannot be told of its time-out lies before
    // others, they wait for that.
    stage.ledger.waitSettled(stage.ledger.lastDeadline() + kPatience, [&] { crowd.ping(); });
    // A controller is serial: whatever else was to come has come when these are answered.
    crowd.ping();
    stage.ledger.waitSettled(stage.ledger.lastDeadline() + kPatience, nullptr);
}

/// @return whether all is well
bool runRound(const Options& options, bool replies, int seconds) {
    using namespace test_support;
    std::printf("chaos: seed %llu, %s, %d s, %d clients\n", static_cast<unsigned long long>(options.seed),
                replies ? "rejected requests get an answer" : "rejected requests get no answer", seconds,
                options.clients);
    std::fflush(stdout);
    device_files::reset();
    const Servers servers;
    device_files::Settings settings = {{"DEBUG_GLOBAL_LOG_LEVEL", "3"}};
    if (replies) {
        settings["REPLY_TO_REJECTED_REQUESTS"] = "1";
    }
    device_files::writeMarlowConf(settings);

    Ledger ledger(options.seed);
    AgentProcess agent(options.agent);
    if (!waitForSocket(kControllers[0]) || !waitForSocket(kControllers[1])) {
        std::fprintf(stderr, "chaos: the agent did not come up\n%s\n", agent.log().c_str());
        return false;
    }
    const Catalogue catalogue(servers, ledger, replies);
    Vitals before;
    Vitals after;
    size_t repairs = 0;
    {
        const std::unique_ptr<Repairer> repairer = replies ? nullptr : std::make_unique<Repairer>(options.seed);
        Stage stage{.seed = options.seed, .ledger = ledger, .catalogue = catalogue, .repairer = repairer.get()};
        Crowd crowd(stage, options.clients);
        const int warm_up = std::min(20, seconds / 3);
        playFor(stage, crowd, warm_up);
        before = Vitals::settled(agent.pid());
        playFor(stage, crowd, seconds - warm_up);
        after = Vitals::settled(agent.pid());
        ledger.close();
        repairs = repairer != nullptr ? repairer->repairs() : 0;
    }
    compareVitals(before, after, ledger);
    if (!agent.running()) {
        ledger.violation("the agent died");
    }
    const std::optional<ProcessEnd> end = agent.stop();
    if (end != ProcessEnd::exit(0)) {
        ledger.violation(!end.has_value() ? "the agent did not stop"
                                          : std::string("the agent ended with ") +
                                                (end->exited ? "status " : "signal ") + std::to_string(end->status));
    }
    const std::string log = agent.log();
    const size_t rejections = readLog(log, ledger);
    const Ledger::Totals totals = ledger.totals();
    if (static_cast<double>(totals.mustSucceed) < kLeastGood * static_cast<double>(totals.sent)) {
        ledger.violation("less than 60 % of the requests had to succeed: the run says too little");
    }

    const std::string table = ledger.table();
    std::printf("%s", table.c_str());
    std::printf("%zu requests, %zu had to succeed (%.0f %%), %zu did\n", totals.sent, totals.mustSucceed,
                100.0 * static_cast<double>(totals.mustSucceed) / static_cast<double>(std::max<size_t>(totals.sent, 1)),
                totals.succeeded);
    std::printf("%zu jobs rejected by the worker, each explained by its request unless listed below; %zu repairs\n",
                rejections, repairs);
    std::printf("after the warm-up: %s\nat the end:        %s\n", before.text().c_str(), after.text().c_str());
    const std::vector<std::string> violations = ledger.violations();
    std::string list;
    for (const std::string& violation : violations) {
        list += "VIOLATION: " + violation + "\n";
    }
    std::printf("%s%zu violations\n\n", list.substr(0, 20000).c_str(), violations.size());
    std::fflush(stdout);
    if (!violations.empty() && !options.keep.empty()) {
        const std::string name = options.keep + "/" + std::to_string(options.seed) + "-key" + (replies ? "1" : "0");
        std::filesystem::create_directories(options.keep);
        writeFile(name + "-agent.log", log);
        writeFile(name + "-report.txt", table + list);
        std::printf("chaos: the agent's log is %s-agent.log\n", name.c_str());
    }
    return violations.empty();
}

[[noreturn]] void usage() {
    std::fprintf(stderr, "chaos [--seconds N] [--seed S] [--key 0|1|both] [--clients N] [--agent FILE] [--keep DIR]\n");
    std::exit(2);
}

/// 0 for what is none, which no option takes.
int numberOf(const std::string& text) {
    return static_cast<int>(std::strtol(text.c_str(), nullptr, 10));
}

Options parse(int count, char** arguments) {
    Options options;
    options.agent = (std::filesystem::read_symlink("/proc/self/exe").parent_path() / "inet-agent").string();
    for (int i = 1; i < count; i += 2) {
        const std::string name = arguments[i];
        if (i + 1 == count) {
            usage();
        }
        const std::string value = arguments[i + 1];
        if (name == "--seconds") {
            options.seconds = numberOf(value);
        } else if (name == "--seed") {
            options.seed = std::strtoull(value.c_str(), nullptr, 10);
        } else if (name == "--key") {
            options.key = value;
        } else if (name == "--clients") {
            options.clients = numberOf(value);
        } else if (name == "--agent") {
            options.agent = value;
        } else if (name == "--keep") {
            options.keep = value;
        } else {
            usage();
        }
    }
    const bool known = options.key == "0" || options.key == "1" || options.key == "both";
    if (!known || options.seconds < 10 || options.clients < 1 || options.clients > 64) {
        usage();
    }
    return options;
}

int run(const Options& options) {
    // However it hangs, it ends, and the agent with it.
    alarm(static_cast<unsigned>(2 * options.seconds) + 600);
    // A hundred connections and sockets, some of them twice for a moment.
    const rlimit files{4096, 4096};
    (void)setrlimit(RLIMIT_NOFILE, &files);
    // What is free shall be seen to be: the sanitizer, too, gives it back. Before any thread.
    (void)setenv("ASAN_OPTIONS", "quarantine_size_mb=8:detect_leaks=1", 1);
    std::vector<bool> keys;
    for (const bool replies : {false, true}) {
        if (options.key == "both" || options.key == (replies ? "1" : "0")) {
            keys.push_back(replies);
        }
    }
    const int share = options.seconds / static_cast<int>(keys.size());
    const int rounds = (share + kLongestRoundSec - 1) / kLongestRoundSec;
    bool well = true;
    for (int round = 0; round < rounds; ++round) {
        Options these = options;
        these.seed += static_cast<uint64_t>(round);
        for (const bool replies : keys) {
            well = runRound(these, replies, share / rounds) && well;
        }
    }
    return well ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace
}  // namespace chaos

int main(int count, char** arguments) {
    return chaos::run(chaos::parse(count, arguments));
}
