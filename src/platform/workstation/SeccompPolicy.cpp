#include "platform/workstation/SeccompPolicy.h"

#include <seccomp.h>

#include <algorithm>
#include <utility>

#include "platform/workstation/SeccompExpression.h"

namespace platform {

namespace {

constexpr std::string_view kBlanks = " \t\r\v\f";
constexpr std::string_view kInclude = "@include";

std::string_view trim(std::string_view text) {
    const size_t first = text.find_first_not_of(kBlanks);
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

/// Takes the next line off the content, without comment and blanks around it.
std::string_view nextLine(std::string_view& content) {
    const size_t end = std::min(content.find('\n'), content.size());
    const std::string_view line = content.substr(0, end);
    content.remove_prefix(std::min(end + 1, content.size()));
    return trim(line.substr(0, line.find('#')));
}

}  // namespace

bool SeccompPolicy::parse(const std::string& file, std::string_view content) {
    size_t number = 0;
    while (!content.empty()) {
        const size_t first = ++number;
        std::string line(nextLine(content));
        // A comment's own "\" continues nothing: what it hides ends with its line.
        while (line.ends_with('\\')) {
            line.back() = ' ';
            if (content.empty()) {
                break;
            }
            ++number;
            line += nextLine(content);
        }
        std::string reason;
        if (!parseLine(file, trim(line), reason)) {
            // An included file has told it already, more exactly.
            if (mError.empty()) {
                mError = file;
                mError.append(":").append(std::to_string(first)).append(": ").append(reason);
            }
            return false;
        }
    }
    return true;
}

bool SeccompPolicy::parseLine(const std::string& file, std::string_view line, std::string& reason) {
    if (line.empty()) {
        return true;
    }
    if (line.starts_with(kInclude) && kBlanks.find(line[std::min(kInclude.size(), line.size() - 1)]) != line.npos) {
        return include(file, trim(line.substr(kInclude.size())), reason);
    }
    const size_t colon = line.find(':');
    if (colon == std::string_view::npos) {
        reason = "neither \"name: expression\" nor \"@include path\"";
        return false;
    }
    const std::string name(trim(line.substr(0, colon)));
    // The library names architectures as the kernel does. Negative numbers are its own: calls that this one has not.
    const int call = seccomp_syscall_resolve_name_arch(mArchitecture, name.c_str());
    if (call < 0) {
        reason = "\"" + name + "\" is no system call of this architecture";
        return false;
    }
    SeccompRule rule;
    SeccompExpression expression(trim(line.substr(colon + 1)));
    if (!expression.parse(rule)) {
        reason = expression.error();
        return false;
    }
    SeccompRule& known = mRules[call];
    if (rule.error_number != 0 && known.error_number != 0 && rule.error_number != known.error_number) {
        reason = "\"" + name + "\" fails with another error in an earlier line";
        return false;
    }
    if (known.alternatives.size() + rule.alternatives.size() > kMaxAlternatives) {
        reason = "too many alternatives";
        return false;
    }
    known.allowed |= rule.allowed;
    known.error_number = std::max(known.error_number, rule.error_number);
    std::move(rule.alternatives.begin(), rule.alternatives.end(), std::back_inserter(known.alternatives));
    return true;
}

bool SeccompPolicy::include(const std::string& file, std::string_view path, std::string& reason) {
    std::string full(path);
    if (!path.starts_with('/')) {
        full = file.substr(0, file.rfind('/') + 1) + full;
    }
    std::string content;
    if (mIncludes == kMaxIncludes) {
        reason = "too many files included";
        return false;
    }
    if (path.empty() || !mReadFile(full, content)) {
        reason = "cannot read \"" + full + "\"";
        return false;
    }
    // Never counted down: that bounds files that include themselves in depth and in number.
    ++mIncludes;
    return parse(full, content);
}

}  // namespace platform
