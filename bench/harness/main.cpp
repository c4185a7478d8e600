// inet-agent-bench [--rounds N] [--turns N] [--core N] [--only GROUP]... [--list]
// inet-agent-bench --count TABLE N      runs our row of TABLE N times in bench_counted_loop(), for callgrind
// inet-agent-bench --versions           what the instruction counts depend on, as JSON

#include <gnu/libc-version.h>
#include <sched.h>
#include <sys/utsname.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <thread>

#include "harness/figures.h"
#include "harness/harness.h"

extern "C" void bench_counted_loop(const bench::Loop* loop, std::size_t n);

extern "C" __attribute__((noinline)) void bench_counted_loop(const bench::Loop* loop, std::size_t n) {
    (*loop)(n);
}

namespace bench {

namespace {

using Clock = std::chrono::steady_clock;

constexpr double kSampleNs = 20'000;  // long beside reading the clock, short beside a time slice

struct Options {
    int rounds = 15;
    int turns = 60;
    int core = 0;
    std::vector<std::string> only;
};

std::vector<Row>& rows() {
    static std::vector<Row> all;
    return all;
}

std::vector<Table>& tables() {
    static std::vector<Table> all;
    return all;
}

/// A row at work: what it cost, sample by sample.
struct Subject {
    const Row* row;
    Loop loop;
    std::size_t iterations = 1;
    std::vector<double> round;    // ns, this round's samples
    std::vector<double> samples;  // all rounds'
    std::vector<double> medians;  // one a round
};

double timeOf(const Loop& loop, std::size_t n) {
    const auto start = Clock::now();
    loop(n);
    return std::chrono::duration<double, std::nano>(Clock::now() - start).count();
}

void calibrate(Subject* subject) {
    subject->loop(1);
    double took = 0;
    for (subject->iterations = 1; subject->iterations < (1U << 24); subject->iterations *= 2) {
        took = timeOf(subject->loop, subject->iterations);
        if (took >= kSampleNs) {
            break;
        }
    }
    const double wanted = kSampleNs / took * static_cast<double>(subject->iterations);
    subject->iterations = std::max<std::size_t>(1, static_cast<std::size_t>(wanted));
}

void runRound(std::vector<Subject>* subjects, int turns) {
    for (int turn = 0; turn < turns; ++turn) {
        for (Subject& subject : *subjects) {
            subject.loop(1);  // what the one before left in caches and heap is not this one's cost
            const double took = timeOf(subject.loop, subject.iterations);
            subject.round.push_back(took / static_cast<double>(subject.iterations));
        }
    }
    for (Subject& subject : *subjects) {
        subject.medians.push_back(quantile(subject.round, 0.5));
        subject.samples.insert(subject.samples.end(), subject.round.begin(), subject.round.end());
        subject.round.clear();
    }
}

void printComparison(const Table& table, const std::vector<Subject>& subjects) {
    std::printf("| subject | p50 | p99 | ours / it | goal |\n|---|--:|--:|--:|--:|\n");
    const auto ours = std::find_if(subjects.begin(), subjects.end(),
                                   [](const Subject& subject) { return subject.row->subject == kOurs; });
    for (const Subject& subject : subjects) {
        std::printf("| %s | %s | %s |", subject.row->subject.c_str(), timeText(quantile(subject.medians, 0.5)).c_str(),
                    timeText(quantile(subject.samples, 0.99)).c_str());
        if (ours == subjects.end() || &subject == &*ours) {
            std::printf(" | |\n");
            continue;
        }
        std::printf(" %.2f |", ratioOf(ours->medians, subject.medians));
        const auto goal = std::find_if(table.goals.begin(), table.goals.end(),
                                       [&](const Goal& one) { return one.subject == subject.row->subject; });
        if (goal != table.goals.end()) {
            std::printf(" <= %.2f", goal->ratio);
        }
        std::printf(" |\n");
    }
}

void printGrowth(const Table& table, const std::vector<Subject>& subjects) {
    std::printf("| size | p50 | p99 | a %s | one %s more |\n|--:|--:|--:|--:|--:|\n", table.per.c_str(),
                table.per.c_str());
    const Subject* before = nullptr;
    for (const Subject& subject : subjects) {
        const auto size = static_cast<double>(subject.row->size);
        const double cost = quantile(subject.medians, 0.5);
        std::printf("| %zu | %s | %s | %s | ", subject.row->size, timeText(cost).c_str(),
                    timeText(quantile(subject.samples, 0.99)).c_str(), timeText(cost / size).c_str());
        if (before != nullptr) {
            const double more = cost - quantile(before->medians, 0.5);
            std::printf("%s", timeText(std::max(0.0, more) / (size - static_cast<double>(before->row->size))).c_str());
        }
        std::printf(" |\n");
        before = &subject;
    }
}

void runTable(const Table& table, const Options& options) {
    std::vector<Subject> subjects;
    for (const Row& row : rows()) {
        if (row.table == table.id) {
            subjects.push_back({&row, row.prepare(), 1, {}, {}, {}});
        }
    }
    if (subjects.empty()) {
        return;
    }
    // Ours on top, a limit or peer in the order of the files.
    std::stable_partition(subjects.begin(), subjects.end(),
                          [](const Subject& subject) { return subject.row->subject == kOurs; });
    for (Subject& subject : subjects) {
        calibrate(&subject);
    }
    for (int round = 0; round < options.rounds; ++round) {
        runRound(&subjects, options.turns);
    }
    std::printf("\n### %s\n\n%s\n\n", table.id.c_str(), table.title.c_str());
    if (table.per.empty()) {
        printComparison(table, subjects);
    } else {
        printGrowth(table, subjects);
    }
    (void)std::fflush(stdout);
}

bool wanted(const Table& table, const Options& options) {
    return options.only.empty() || std::any_of(options.only.begin(), options.only.end(), [&](const std::string& only) {
               return table.id.compare(0, only.size(), only) == 0;
           });
}

/// From here on this thread, and what it starts, stays on one core.
bool pinTo(int core) {
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(static_cast<std::size_t>(core), &set);
    return sched_setaffinity(0, sizeof(set), &set) == 0;
}

/// The C library spares a process of one thread its atomic operations; the agent and its clients have several.
void becomeThreaded() {
    std::thread([] {
        for (;;) {
            std::this_thread::sleep_for(std::chrono::hours(1));
        }
    }).detach();
}

int count(std::string_view id, std::size_t n) {
    for (const Row& row : rows()) {
        if (row.table == id && row.subject == kOurs) {
            becomeThreaded();
            const Loop loop = row.prepare();
            loop(1);  // what only the first time costs
            bench_counted_loop(&loop, n);
            return 0;
        }
    }
    (void)std::fprintf(stderr, "no such table: %s\n", std::string(id).c_str());
    return 2;
}

int versions() {
    utsname system{};
    require(uname(&system) == 0);
#ifdef __clang__
    const char* compiler = "clang";
#else
    const char* compiler = "gcc";
#endif
    std::printf("{\"machine\": \"%s\", \"compiler\": \"%s %s\", \"libc\": \"glibc %s\"}\n", system.machine, compiler,
                __VERSION__, gnu_get_libc_version());
    return 0;
}

int numberOf(const char* text) {
    return static_cast<int>(std::strtol(text, nullptr, 10));
}

int usage() {
    (void)std::fprintf(stderr,
                       "inet-agent-bench [--rounds N] [--turns N] [--core N] [--only GROUP]... [--list]\n"
                       "inet-agent-bench --count TABLE N\n"
                       "inet-agent-bench --versions\n");
    return 2;
}

int main(int argc, char** argv) {
    Options options;
    for (int i = 1; i < argc; ++i) {
        const std::string_view name = argv[i];
        const int left = argc - i - 1;
        if (name == "--versions") {
            return versions();
        }
        if (name == "--list") {
            for (const Table& table : tables()) {
                std::printf("%s\n", table.id.c_str());
            }
            return 0;
        }
        if (name == "--count" && left >= 2) {
            return count(argv[i + 1], std::strtoul(argv[i + 2], nullptr, 10));
        }
        if (left < 1) {
            return usage();
        }
        const char* value = argv[++i];
        if (name == "--only") {
            options.only.emplace_back(value);
        } else if (name == "--rounds") {
            options.rounds = std::max(1, numberOf(value));
        } else if (name == "--turns") {
            options.turns = std::max(1, numberOf(value));
        } else if (name == "--core") {
            options.core = numberOf(value);
        } else {
            return usage();
        }
    }
    becomeThreaded();
    if (!pinTo(options.core)) {
        (void)std::fprintf(stderr, "not pinned to core %d: the figures depend on where the scheduler puts us\n",
                           options.core);
    }
    for (const Table& table : tables()) {
        if (wanted(table, options)) {
            runTable(table, options);
        }
    }
    (void)std::fflush(stdout);
    std::_Exit(0);  // the other thread sleeps on
}

}  // namespace

Register::Register(Row row) {
    rows().push_back(std::move(row));
}

Register::Register(Table table) {
    tables().push_back(std::move(table));
}

}  // namespace bench

int main(int argc, char** argv) {
    return bench::main(argc, argv);
}
