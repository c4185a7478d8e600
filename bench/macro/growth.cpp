// How the agent's cost grows: with what waits in a controller's queue, with who else is in the directory, with the body.

#include <pthread.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <thread>

#include "client/inet_agent_client.h"
#include "harness/figures.h"
#include "macro/agent.h"
#include "macro/libcurl.h"
#include "mq/Envelope.h"

namespace bench {

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kLongTimeoutSec = 3000;

double nanosecondsSince(Clock::time_point start) {
    return std::chrono::duration<double, std::nano>(Clock::now() - start).count();
}

/// Waits until a process has nothing to do any more. @return its processor time
double atRest(pid_t pid) {
    constexpr auto kPause = std::chrono::milliseconds(20);
    constexpr double kNothingNs = 50'000;
    double before = cpuTime(pid);
    for (int quiet = 0; quiet < 3;) {
        std::this_thread::sleep_for(kPause);
        const double now = cpuTime(pid);
        quiet = now - before < kNothingNs ? quiet + 1 : 0;
        before = now;
    }
    return before;
}

/// One request holds the controller; n more come and wait; then it is let go.
void measureJobs(const Stage& stage, std::size_t n) {
    const AgentProcess agent(stage);
    PlainClient client("bench");
    if (!client.send({stage.origin.http("/held"), kLongTimeoutSec, false})) {
        die("the agent takes no request");
    }
    const double empty = atRest(agent.pid());
    const std::string url = stage.origin.http("/bytes/200");
    for (std::size_t i = 0; i < n; ++i) {
        if (!client.send({url, kLongTimeoutSec, false})) {
            die("the agent takes no request");
        }
    }
    const double queued = atRest(agent.pid());
    const auto start = Clock::now();
    stage.origin.release();
    for (std::size_t i = 0; i < n + 1; ++i) {
        (void)client.receive();
    }
    const double served = nanosecondsSince(start);
    const double done = atRest(agent.pid());
    const auto jobs = static_cast<double>(n);
    const double replies = jobs + 1;
    std::printf("| %zu | %s | %s | %s |\n", n, timeText((queued - empty) / jobs).c_str(),
                timeText(served / replies).c_str(), timeText((done - queued) / replies).c_str());
    (void)std::fflush(stdout);
}

void printJobs(const Stage& stage) {
    std::printf("| jobs | queued, CPU a job | served, a job | CPU of that |\n|--:|--:|--:|--:|\n");
    for (const std::size_t n : {1U, 10U, 100U, 1000U, 10000U}) {
        if (n <= 1000 || !stage.quick) {
            measureJobs(stage, n);
        }
    }
}

/// Others in the directory, who read what is announced to them.
class Neighbours {
public:
    explicit Neighbours(std::size_t n) {
        for (std::size_t i = 0; i < n; ++i) {
            sockaddr_un address{};
            address.sun_family = AF_UNIX;
            (void)std::snprintf(address.sun_path, sizeof(address.sun_path), "%sneighbour-%zu",
                                zv_loc_fw::envelope::kSocketDirectory, i);
            const int made = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
            if (made < 0 || ::bind(made, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
                die("no more sockets: " + std::to_string(i));
            }
            mSockets.push_back(made);
            mPaths.emplace_back(address.sun_path);
        }
    }
    ~Neighbours() {
        for (std::size_t i = 0; i < mSockets.size(); ++i) {
            (void)::close(mSockets[i]);
            (void)::unlink(mPaths[i].c_str());
        }
    }
    Neighbours(const Neighbours&) = delete;
    Neighbours& operator=(const Neighbours&) = delete;

    void read() const {
        char data[512];
        for (const int one : mSockets) {
            while (::recv(one, data, sizeof(data), MSG_DONTWAIT) > 0) {
            }
        }
    }

private:
    std::vector<int> mSockets;
    std::vector<std::string> mPaths;
};

void measureParticipants(const Stage& stage, std::size_t n) {
    constexpr int kTimes = 15;
    constexpr std::size_t kRequests = 300;
    const Neighbours neighbours(n);
    std::vector<double> start_cpu;
    std::vector<double> opened;
    for (int i = 0; i < kTimes / 3; ++i) {
        const AgentProcess agent(stage);
        start_cpu.push_back(cpuTime(agent.pid()));
        neighbours.read();
    }
    for (int i = 0; i < kTimes; ++i) {
        const auto start = Clock::now();
        const inet_agent::OpenResult result = inet_agent::Client::open("bench-opened");
        opened.push_back(nanosecondsSince(start));
        if (!result.client.has_value()) {
            die(result.error);
        }
        neighbours.read();
    }
    const AgentProcess agent(stage);
    PlainClient client("bench");
    const std::string url = stage.origin.http("/bytes/200");
    const std::vector<double> requests = timed(kRequests, [&] { (void)client.get({url, 60, false}); });
    std::printf("| %zu | %s | %s | %s |\n", n, timeText(quantile(start_cpu, 0.5)).c_str(),
                timeText(quantile(opened, 0.5)).c_str(), timeText(quantile(requests, 0.5)).c_str());
    (void)std::fflush(stdout);
}

void printParticipants(const Stage& stage) {
    rlimit files{};
    if (::getrlimit(RLIMIT_NOFILE, &files) == 0) {
        files.rlim_cur = files.rlim_max;
        (void)::setrlimit(RLIMIT_NOFILE, &files);
    }
    std::printf("| participants | agent's start, CPU | a client registers | small GET |\n|--:|--:|--:|--:|\n");
    for (const std::size_t n : {1U, 10U, 100U, 1000U}) {
        measureParticipants(stage, n);
    }
}

/// The most memory that a process has had since then, shared files not counted, as far as looking often can tell.
class PeakWatch {
public:
    explicit PeakWatch(pid_t pid) : mThread([this, pid] { watch(pid); }) {}
    ~PeakWatch() { (void)end(); }
    PeakWatch(const PeakWatch&) = delete;
    PeakWatch& operator=(const PeakWatch&) = delete;
    /// @return MiB
    double end() {
        mEnded = true;
        if (mThread.joinable()) {
            mThread.join();
        }
        return mPeak;
    }

private:
    /// On any core: on the one where all the rest runs it would see little.
    void watch(pid_t pid) {
        cpu_set_t everywhere;
        CPU_ZERO(&everywhere);
        for (unsigned core = 0; core < std::thread::hardware_concurrency(); ++core) {
            CPU_SET(core, &everywhere);
        }
        (void)::pthread_setaffinity_np(::pthread_self(), sizeof(everywhere), &everywhere);
        while (!mEnded) {
            mPeak = std::max(mPeak, residentWithoutShared(pid));
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
    }

    std::atomic<bool> mEnded{false};
    double mPeak = 0;
    std::thread mThread;
};

void measureBody(const Stage& stage, std::size_t size) {
    constexpr double kMiB = 1024 * 1024;
    const int rounds = stage.quick ? 2 : 7;
    const AgentProcess agent(stage);
    PlainClient client("bench");
    Libcurl curl;
    const std::string url = stage.origin.http("/bytes/" + std::to_string(size));
    const auto direct = [&] {
        std::string body;
        curl.get(url, &body);
    };
    const auto by_agent = [&] { (void)client.get({url, 60, false}); };
    std::vector<double> limit;
    std::vector<double> ours;
    direct();
    by_agent();
    constexpr double kRoundNs = 60e6;
    const double took = quantile(timed(3, by_agent), 0.5);
    const auto passes = static_cast<std::size_t>(std::clamp(kRoundNs / took, 3.0, stage.quick ? 50.0 : 300.0));
    for (int round = 0; round < rounds; ++round) {
        limit.push_back(quantile(timed(passes, direct), 0.5));
        ours.push_back(quantile(timed(passes, by_agent), 0.5));
    }
    PeakWatch watch(agent.pid());
    (void)timed(3, by_agent);
    const double peak = watch.end();
    const double body = static_cast<double>(size) / kMiB;
    std::printf("| %zu | %s | %s | %.2f | %s | %s |\n", size, timeText(quantile(limit, 0.5)).c_str(),
                timeText(quantile(ours, 0.5)).c_str(), ratioOf(ours, limit), textOf("%.1f MiB", peak).c_str(),
                body >= 16 ? textOf("%.2f", peak / body).c_str() : "");
    (void)std::fflush(stdout);
}

void printBodies(const Stage& stage) {
    std::printf("| bytes | libcurl in process | inet-agent | / limit | agent's peak memory | in bodies |\n");
    std::printf("|--:|--:|--:|--:|--:|--:|\n");
    for (const unsigned kib : {0U, 1U, 32U, 128U, 1024U, 4096U, 16384U, 65536U, 131072U}) {
        if (kib <= 16384 || !stage.quick) {
            measureBody(stage, std::size_t{kib} << 10);
        }
    }
}

const RegisterExchange kReports[] = {
    RegisterExchange(
        Report{"growth/jobs", "So many requests wait in a controller's queue while one is held up.", printJobs}),
    RegisterExchange(Report{"growth/participants", "So many others are in the directory, and read what they hear.",
                            printParticipants}),
    RegisterExchange(Report{"growth/bodies", "GET of so many bytes, HTTP, over a kept connection.", printBodies}),
};

}  // namespace

}  // namespace bench
