#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "platform/workstation/SeccompArchitecture.h"

namespace platform {

enum class SeccompOperator {
    kEqual,
    kNotEqual,
    kLess,
    kLessOrEqual,
    kGreater,
    kGreaterOrEqual,
    /// "&": at least one bit of the value is set.
    kAnyBit,
    /// "in": no bit but those of the value is set.
    kOnlyBits,
};

/// A comparison of one argument, 64 bits and unsigned.
struct SeccompCondition {
    uint32_t argument = 0;
    SeccompOperator compare = SeccompOperator::kEqual;
    uint64_t value = 0;
};

/// What may become of one system call.
struct SeccompRule {
    /// Whatever its arguments are.
    bool allowed = false;
    /// Otherwise: allowed when all conditions of one of these hold.
    std::vector<std::vector<SeccompCondition>> alternatives;
    /// Otherwise: fails with this error, or is trapped when 0.
    int error_number = 0;
};

/// The system calls that a policy names. Knows nothing of how a process is confined.
///
/// Lines of a policy ("#" begins a comment, "\" at the end of a line continues it):
///   name: 1                                    allowed
///   name: return EPERM                         fails; a name or a number
///   name: arg0 == 5 || arg1 in 0x1|2 && arg2 & 4   allowed when the expression holds, else trapped
///   name: arg0 == AF_UNIX; return EPERM        the same, else fails
///   @include path                              absolute, or from the directory of the including file
/// Operators: == != < <= > >= & in. Values: decimal, hexadecimal, octal, names, joined by "|", "~" and parentheses.
/// A call that is named again is allowed what any of its lines allows.
class SeccompPolicy {
public:
    /// Gives the content of a file; false when there is none to be had.
    using ReadFile = std::function<bool(const std::string& path, std::string& content)>;
    using Rules = std::map<int, SeccompRule>;

    /// Conditions joined by "&&"; alternatives of one call; files included, all told.
    static constexpr size_t kMaxConditions = 32;
    static constexpr size_t kMaxAlternatives = 256;
    static constexpr int kMaxIncludes = 64;

    /// @param architecture whose numbers the calls get; the values of arguments are always this machine's
    explicit SeccompPolicy(ReadFile read_file, SeccompArchitecture architecture = kSeccompNative)
        : mReadFile(std::move(read_file)), mArchitecture(architecture) {}

    /// Adds a policy's lines to the rules. Any number of times, until one fails.
    /// @param file its name, for messages and for includes
    /// @return false at the first line that is not understood; see error()
    bool parse(const std::string& file, std::string_view content);

    /// "file:line: what is wrong".
    [[nodiscard]] const std::string& error() const { return mError; }
    /// By the number of the system call.
    [[nodiscard]] const Rules& rules() const { return mRules; }

private:
    bool parseLine(const std::string& file, std::string_view line, std::string& reason);
    bool include(const std::string& file, std::string_view path, std::string& reason);

    const ReadFile mReadFile;
    const SeccompArchitecture mArchitecture;
    Rules mRules;
    std::string mError;
    int mIncludes = 0;
};

}  // namespace platform
