#include "macro/compare.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string>

#include "harness/figures.h"

namespace bench {

namespace {

constexpr double kRoundNs = 400e6;  // about the longest that one subject may take of a round; divided when quick

/// A subject: one value a round.
struct Subject {
    std::string name;
    std::unique_ptr<Work> work;
    std::size_t passes = 1;
    std::vector<double> p50;
    std::vector<double> p99;
    std::vector<double> cpu;    // of the servants, a pass
    std::vector<double> apart;  // p50 with the servants on a core of their own
};

double servantsCpu(const Subject& subject) {
    double sum = 0;
    for (const pid_t servant : subject.work->servants()) {
        sum += cpuTime(servant);
    }
    return sum;
}

void moveServants(const Subject& subject, int core) {
    for (const pid_t servant : subject.work->servants()) {
        (void)moveTo(servant, core);
    }
}

void calibrate(Subject* subject, std::size_t passes, std::size_t divisor) {
    (void)subject->work->run(1);
    const double took = quantile(subject->work->run(2), 0) * static_cast<double>(subject->work->batch());
    const auto affordable = static_cast<std::size_t>(kRoundNs / std::max(took, 1.0));
    subject->passes = std::max<std::size_t>(1, std::min(passes, affordable) / divisor);
}

void runRound(std::vector<Subject>* subjects, const CompareOptions& options) {
    for (Subject& subject : *subjects) {
        (void)subject.work->run(1);
        const double before = servantsCpu(subject);
        const std::vector<double> took = subject.work->run(subject.passes);
        const std::size_t done = subject.passes * subject.work->batch();
        subject.cpu.push_back((servantsCpu(subject) - before) / static_cast<double>(done));
        subject.p50.push_back(quantile(took, 0.5));
        subject.p99.push_back(quantile(took, 0.99));
    }
    if (options.otherCore < 0) {
        return;
    }
    for (Subject& subject : *subjects) {
        if (!subject.work->servants().empty()) {
            moveServants(subject, options.otherCore);
            (void)subject.work->run(1);
            subject.apart.push_back(quantile(subject.work->run((subject.passes + 1) / 2), 0.5));
            moveServants(subject, options.core);
        }
    }
}

/// "12.3 us | 1.23": the median and the ratio to the limit's, as two cells.
std::string cells(const std::vector<double>& values, const std::vector<double>* limit) {
    if (values.empty()) {
        return " |";
    }
    return timeText(quantile(values, 0.5)) + " | " + (limit != nullptr ? textOf("%.2f", ratioOf(values, *limit)) : "");
}

void print(const std::vector<Subject>& subjects, const std::string& limitName) {
    const auto named = [&](const std::string& name) {
        const auto found =
            std::find_if(subjects.begin(), subjects.end(), [&](const Subject& one) { return one.name == name; });
        return found != subjects.end() ? &*found : nullptr;
    };
    const Subject* const limit = named(limitName);
    const Subject* const ours = named(kAgent);
    std::printf(
        "| subject | p50 | / limit | ours / it | p99 | / limit | servants' CPU | / limit | two cores | / limit |\n");
    std::printf("|---|--:|--:|--:|--:|--:|--:|--:|--:|--:|\n");
    for (const Subject& subject : subjects) {
        const bool other = limit != nullptr && &subject != limit;
        const bool serves = !subject.work->servants().empty();
        const std::string beside =
            ours != nullptr && &subject != ours ? textOf("%.2f", ratioOf(ours->p50, subject.p50)) : "";
        std::printf("| %s | %s | %s | %s | %s | %s |\n", subject.name.c_str(),
                    cells(subject.p50, other ? &limit->p50 : nullptr).c_str(), beside.c_str(),
                    cells(subject.p99, other ? &limit->p99 : nullptr).c_str(),
                    serves ? cells(subject.cpu, other ? &limit->p50 : nullptr).c_str() : " |",
                    cells(subject.apart, other ? &limit->p50 : nullptr).c_str());
    }
}

}  // namespace

void compare(const ExchangeTable& table, const std::vector<const ExchangeRow*>& rows, const Stage& stage,
             const CompareOptions& options) {
    std::vector<Subject> subjects;
    std::string left_out;
    for (const ExchangeRow* row : rows) {
        std::string why;
        std::unique_ptr<Work> work = row->make(stage, table.id, &why);
        if (work == nullptr) {
            left_out += "\n" + row->subject + " is left out: " + why + ".\n";
            continue;
        }
        subjects.push_back({row->subject, std::move(work), 1, {}, {}, {}, {}});
        calibrate(&subjects.back(), table.passes, options.divisor);
    }
    for (int round = 0; round < options.rounds; ++round) {
        runRound(&subjects, options);
    }
    std::printf("\n### %s\n\n%s", table.id.c_str(), table.title.c_str());
    if (!table.goals.empty()) {
        std::printf(" Goal: %s.", table.goals.c_str());
    }
    std::printf("\n\n");
    print(subjects, table.limit);
    std::printf("%s", left_out.c_str());
    (void)std::fflush(stdout);
}

}  // namespace bench
