// Policies: the parser, and the program that the kernel would run, which must judge calls as the rules say.

#include "platform/workstation/SeccompPolicy.h"

#include <linux/seccomp.h>

#include <cstddef>
#include <map>
#include <string>
#include <string_view>

#include "platform/workstation/SeccompFilter.h"
#include "support/Input.h"

namespace {

using namespace platform;

#if defined(__x86_64__)
constexpr uint32_t kArchitecture = 0xC000003E;
#else
constexpr uint32_t kArchitecture = 0xC00000B7;
#endif

constexpr size_t kMaxRulesTried = 8;
constexpr size_t kMaxConditionsTried = 24;

/// What a filter answers to a call. Only what filters of ours consist of; anything else is a finding.
uint32_t judge(const std::vector<sock_filter>& program, const seccomp_data& call) {
    uint32_t accumulator = 0;
    for (size_t at = 0; at < program.size(); ++at) {
        const sock_filter& step = program[at];
        bool jump = false;
        switch (step.code) {
            case BPF_LD | BPF_W | BPF_ABS:
                FUZZ_CHECK(step.k % 4 == 0 && step.k + 4 <= sizeof(call));
                std::memcpy(&accumulator, reinterpret_cast<const char*>(&call) + step.k, sizeof(accumulator));
                continue;
            case BPF_RET | BPF_K:
                return step.k;
            case BPF_JMP | BPF_JA:
                at += step.k;
                continue;
            case BPF_JMP | BPF_JEQ | BPF_K:
                jump = accumulator == step.k;
                break;
            case BPF_JMP | BPF_JGT | BPF_K:
                jump = accumulator > step.k;
                break;
            case BPF_JMP | BPF_JGE | BPF_K:
                jump = accumulator >= step.k;
                break;
            case BPF_JMP | BPF_JSET | BPF_K:
                jump = (accumulator & step.k) != 0;
                break;
            default:
                FUZZ_CHECK(false);
        }
        at += jump ? step.jt : step.jf;
    }
    FUZZ_CHECK(false);  // ran off the end
    return 0;
}

bool holds(const SeccompCondition& condition, const seccomp_data& call) {
    FUZZ_CHECK(condition.argument < 6);
    const uint64_t argument = call.args[condition.argument];
    switch (condition.compare) {
        case SeccompOperator::kEqual:
            return argument == condition.value;
        case SeccompOperator::kNotEqual:
            return argument != condition.value;
        case SeccompOperator::kLess:
            return argument < condition.value;
        case SeccompOperator::kLessOrEqual:
            return argument <= condition.value;
        case SeccompOperator::kGreater:
            return argument > condition.value;
        case SeccompOperator::kGreaterOrEqual:
            return argument >= condition.value;
        case SeccompOperator::kAnyBit:
            return (argument & condition.value) != 0;
        case SeccompOperator::kOnlyBits:
            return (argument & ~condition.value) == 0;
    }
    FUZZ_CHECK(false);
    return false;
}

uint32_t expected(const SeccompRule& rule, const seccomp_data& call) {
    bool allowed = rule.allowed;
    for (const auto& conditions : rule.alternatives) {
        bool all = true;
        for (const SeccompCondition& condition : conditions) {
            all = all && holds(condition, call);
        }
        allowed = allowed || all;
    }
    return allowed                  ? SECCOMP_RET_ALLOW
           : rule.error_number != 0 ? SECCOMP_RET_ERRNO | static_cast<uint32_t>(rule.error_number)
                                    : SECCOMP_RET_TRAP;
}

/// Every argument takes values around those that the rule speaks of.
void tryRule(const std::vector<sock_filter>& program, int number, const SeccompRule& rule) {
    seccomp_data call = {};
    call.nr = number;
    call.arch = kArchitecture;
    FUZZ_CHECK(judge(program, call) == expected(rule, call));
    size_t tried = 0;
    for (const auto& conditions : rule.alternatives) {
        for (const SeccompCondition& condition : conditions) {
            if (++tried > kMaxConditionsTried) {
                return;
            }
            const uint64_t value = condition.value;
            for (const uint64_t argument : {value, value - 1, value + 1, ~value, value << 32, value >> 32,
                                            value ^ (uint64_t{1} << 32), value | (uint64_t{1} << 63)}) {
                call.args[condition.argument] = argument;
                FUZZ_CHECK(judge(program, call) == expected(rule, call));
            }
            call.args[condition.argument] = value;  // so that the whole alternative holds in the end
        }
    }
}

void tryFilter(const SeccompPolicy::Rules& rules) {
    const std::vector<sock_filter> program = makeSeccompFilter(rules);
    FUZZ_CHECK(program.size() <= BPF_MAXINSNS);
    if (program.empty()) {
        return;
    }
    size_t tried = 0;
    for (const auto& [number, rule] : rules) {
        FUZZ_CHECK(number >= 0 && rule.error_number >= 0 && rule.error_number <= 4095);
        if (++tried <= kMaxRulesTried) {
            tryRule(program, number, rule);
        }
    }
    seccomp_data call = {};
    call.arch = kArchitecture;
    call.nr = 0x7FFFFFFF;  // no rule's
    FUZZ_CHECK(judge(program, call) == SECCOMP_RET_TRAP);
    call.arch = ~kArchitecture;
    FUZZ_CHECK(judge(program, call) == SECCOMP_RET_KILL_PROCESS);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    fuzz::quietLog(0);
    return 0;
}

/// The input is a row of files with a zero byte between them, "/p/a" and so on: the first is the base policy, the second
/// the additional one, and each can include any.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string_view rest(reinterpret_cast<const char*>(data), size);
    std::map<std::string, std::string> files;
    for (char name = 'a'; name <= 'd'; ++name) {
        const size_t end = std::min(rest.find('\0'), rest.size());
        files[std::string("/p/") + name] = rest.substr(0, end);
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
    size_t reads = 0;
    SeccompPolicy policy([&](const std::string& path, std::string& content) {
        FUZZ_CHECK(++reads <= SeccompPolicy::kMaxIncludes + 1);
        const auto found = files.find(path);
        content = found != files.end() ? found->second : "";
        return found != files.end();
    });
    const bool parsed = policy.parse("/p/a", files["/p/a"]) && policy.parse("/p/b", files["/p/b"]);
    FUZZ_CHECK(parsed == policy.error().empty());
    FUZZ_CHECK(parsed || policy.error().starts_with("/p/"));
    if (parsed) {
        tryFilter(policy.rules());
    }
    return 0;
}
