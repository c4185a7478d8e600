// What a process costs that has nothing to do.

#include <algorithm>
#include <cstdio>
#include <thread>
#include <utility>

#include "harness/figures.h"
#include "macro/agent.h"
#include "macro/peers.h"

#ifdef BENCH_DBUS
#include "macro/dbus.h"
#endif

namespace bench {

namespace {

constexpr auto kSettle = std::chrono::seconds(3);

struct Idler {
    std::string name;
    pid_t pid;
    std::uint64_t before = 0;
};

std::string memoryCells(pid_t pid) {
    const Memory memory = memoryOf(pid);
    return textOf("%.1f MiB | %.1f MiB", memory.own, memory.resident);
}

void printIdle(const Stage& stage) {
    const auto span = std::chrono::seconds(stage.quick ? 5 : 60);
    std::string left_out;
    std::vector<Idler> idlers;
    const auto join = [&](const char* name, pid_t pid, const std::string& why) {
        if (why.empty()) {
            idlers.push_back({name, pid});
        } else {
            left_out += std::string("\n") + name + " is left out: " + why + ".\n";
        }
    };

    const AgentProcess agent(stage);
    join(kAgent, agent.pid(), "");
    std::string why;
    const RunningPeer aria2 = startAria2(stage, &why);
    join("aria2", aria2.process.pid(), why);
    why.clear();
    const RunningPeer squid = startSquid(stage, &why);
    join("squid", squid.process.pid(), why);
#ifdef BENCH_DBUS
    why.clear();
    const std::unique_ptr<Bus> bus = Bus::start(Bus::Kind::kDaemon, stage, &why);
    join("dbus-daemon", bus != nullptr ? bus->pid() : -1, why);
#endif

    std::this_thread::sleep_for(kSettle);
    for (Idler& one : idlers) {
        one.before = sleeps(one.pid);
    }
    std::this_thread::sleep_for(span);
    std::printf("| subject | wake-ups in %d s | private | resident |\n|---|--:|--:|--:|\n",
                static_cast<int>(span.count()));
    for (const Idler& one : idlers) {
        std::printf("| %s | %llu | %s |\n", one.name.c_str(),
                    static_cast<unsigned long long>(sleeps(one.pid) - one.before), memoryCells(one.pid).c_str());
    }

    const std::size_t small = stage.quick ? 200 : 2000;
    const std::string large = stage.origin.http("/bytes/" + std::to_string((stage.quick ? 8 : 64) << 20));
    PlainClient client("bench");
    (void)timed(small, [&] { (void)client.get({stage.origin.https("/bytes/200"), 60, false}); });
    (void)timed(3, [&] { (void)client.get({large, 60, false}); });
    std::this_thread::sleep_for(kSettle * 2);
    std::printf("| inet-agent, after load | | %s |\n%s", memoryCells(agent.pid()).c_str(), left_out.c_str());
}

const RegisterExchange kReport(Report{
    "idle/rest",
    "Processes that have been started and asked nothing; then the agent some seconds after 2000 small HTTPS "
    "bodies and three of 64 MiB (quick: 200, and 8 MiB). Goal: no wake-up, private <= 2 MiB, resident <= 12.2 "
    "MiB, after load 2.3 MiB more.",
    printIdle});

}  // namespace

}  // namespace bench
