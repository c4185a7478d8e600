#include "platform/workstation/SeccompFilter.h"

#include <linux/seccomp.h>

#include <bit>
#include <cstddef>

namespace platform {

namespace {

// The halves of an argument are found by this.
static_assert(std::endian::native == std::endian::little);

using Program = std::vector<sock_filter>;

/// Placeholder for a jump to the end of an alternative, as its length is not known yet. No jump of a condition's own is
/// as far.
constexpr uint8_t kFails = 0xFF;

void add(Program& program, int code, uint32_t operand, uint8_t if_true = 0, uint8_t if_false = 0) {
    program.push_back({static_cast<uint16_t>(code), if_true, if_false, operand});
}

void addLoad(Program& program, size_t offset) {
    add(program, BPF_LD | BPF_W | BPF_ABS, static_cast<uint32_t>(offset));
}

void addJump(Program& program, int test, uint32_t operand, uint8_t if_true, uint8_t if_false) {
    add(program, BPF_JMP | BPF_K | test, operand, if_true, if_false);
}

void addReturn(Program& program, uint32_t action) {
    add(program, BPF_RET | BPF_K, action);
}

/// Code that goes on behind itself when the condition holds and jumps by kFails when not. The machine has 32 bits: the
/// upper half of the argument decides, or the lower one has to.
void addCondition(Program& program, const SeccompCondition& condition) {
    const size_t low = offsetof(seccomp_data, args) + condition.argument * sizeof(uint64_t);
    const auto value_low = static_cast<uint32_t>(condition.value);
    const auto value_high = static_cast<uint32_t>(condition.value >> 32);
    addLoad(program, low + sizeof(uint32_t));
    switch (condition.compare) {
        case SeccompOperator::kEqual:
            addJump(program, BPF_JEQ, value_high, 0, kFails);
            addLoad(program, low);
            addJump(program, BPF_JEQ, value_low, 0, kFails);
            break;
        case SeccompOperator::kNotEqual:
            addJump(program, BPF_JEQ, value_high, 0, 2);
            addLoad(program, low);
            addJump(program, BPF_JEQ, value_low, kFails, 0);
            break;
        case SeccompOperator::kLess:
        case SeccompOperator::kLessOrEqual:
            addJump(program, BPF_JGT, value_high, kFails, 0);
            addJump(program, BPF_JEQ, value_high, 0, 2);
            addLoad(program, low);
            addJump(program, condition.compare == SeccompOperator::kLess ? BPF_JGE : BPF_JGT, value_low, kFails, 0);
            break;
        case SeccompOperator::kGreater:
        case SeccompOperator::kGreaterOrEqual:
            addJump(program, BPF_JGT, value_high, 3, 0);
            addJump(program, BPF_JEQ, value_high, 0, kFails);
            addLoad(program, low);
            addJump(program, condition.compare == SeccompOperator::kGreater ? BPF_JGT : BPF_JGE, value_low, 0, kFails);
            break;
        case SeccompOperator::kAnyBit:
            addJump(program, BPF_JSET, value_high, 2, 0);
            addLoad(program, low);
            addJump(program, BPF_JSET, value_low, 0, kFails);
            break;
        case SeccompOperator::kOnlyBits:
            addJump(program, BPF_JSET, ~value_high, kFails, 0);
            addLoad(program, low);
            addJump(program, BPF_JSET, ~value_low, kFails, 0);
            break;
    }
}

void addAlternative(Program& program, const std::vector<SeccompCondition>& conditions) {
    // At most five instructions for a condition and one return: every jump to the end fits.
    static_assert(5 * SeccompPolicy::kMaxConditions + 1 < kFails);
    const size_t begin = program.size();
    for (const SeccompCondition& condition : conditions) {
        addCondition(program, condition);
    }
    addReturn(program, SECCOMP_RET_ALLOW);
    for (size_t i = begin; i < program.size(); ++i) {
        const auto to_end = static_cast<uint8_t>(program.size() - i - 1);
        sock_filter& instruction = program[i];
        instruction.jt = instruction.jt == kFails ? to_end : instruction.jt;
        instruction.jf = instruction.jf == kFails ? to_end : instruction.jf;
    }
}

Program makeRule(const SeccompRule& rule) {
    Program program;
    if (rule.allowed) {
        addReturn(program, SECCOMP_RET_ALLOW);
        return program;
    }
    for (const auto& conditions : rule.alternatives) {
        addAlternative(program, conditions);
    }
    addReturn(program,
              rule.error_number != 0 ? SECCOMP_RET_ERRNO | static_cast<uint32_t>(rule.error_number) : SECCOMP_RET_TRAP);
    return program;
}

}  // namespace

std::vector<sock_filter> makeSeccompFilter(const SeccompPolicy::Rules& rules, SeccompArchitecture architecture) {
    Program program;
    addLoad(program, offsetof(seccomp_data, arch));
    addJump(program, BPF_JEQ, architecture, 1, 0);
    addReturn(program, SECCOMP_RET_KILL_PROCESS);
    addLoad(program, offsetof(seccomp_data, nr));
    for (const auto& [call, rule] : rules) {
        const Program body = makeRule(rule);
        // The jump across the body has a range of its own: a conditional one reaches 255 instructions only.
        addJump(program, BPF_JEQ, static_cast<uint32_t>(call), 1, 0);
        add(program, BPF_JMP | BPF_JA, static_cast<uint32_t>(body.size()));
        program.insert(program.end(), body.begin(), body.end());
    }
    addReturn(program, SECCOMP_RET_TRAP);
    return program.size() <= BPF_MAXINSNS ? program : Program();
}

}  // namespace platform
