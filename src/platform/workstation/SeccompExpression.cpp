#include "platform/workstation/SeccompExpression.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <optional>

#include "platform/workstation/SeccompConstants.h"

namespace platform {

namespace {

constexpr uint32_t kMaxArgument = 5;
constexpr uint64_t kMaxErrorNumber = 4095;
/// Parentheses and "~" within one another.
constexpr int kMaxDepth = 16;
constexpr size_t kMaxDigits = 64;

bool isWord(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
}

std::optional<uint64_t> toNumber(std::string_view text) {
    // strtoull alone would take blanks and signs too.
    if (text.empty() || text.size() > kMaxDigits || text[0] < '0' || text[0] > '9') {
        return std::nullopt;
    }
    const std::string digits(text);
    char* end = nullptr;
    errno = 0;
    const unsigned long long value = strtoull(digits.c_str(), &end, 0);
    if (errno != 0 || *end != '\0') {
        return std::nullopt;
    }
    return value;
}

}  // namespace

bool SeccompExpression::parse(SeccompRule& rule) {
    if (take("1") || take("allow")) {
        rule.allowed = true;
    } else if (take("return")) {
        if (!parseReturn(rule.error_number)) {
            return false;
        }
    } else {
        do {
            if (rule.alternatives.size() == SeccompPolicy::kMaxAlternatives) {
                return fail("too many alternatives");
            }
            if (!parseAlternative(rule.alternatives.emplace_back())) {
                return false;
            }
        } while (take("||"));
        if (take(";") && (!take("return") || !parseReturn(rule.error_number))) {
            return fail("\"return\" and an error expected");
        }
    }
    return mToken.empty() || fail("\"" + std::string(mToken) + "\" is too much");
}

void SeccompExpression::advance() {
    mRest.remove_prefix(std::min(mRest.find_first_not_of(" \t"), mRest.size()));
    size_t length = 0;
    while (length < mRest.size() && isWord(mRest[length])) {
        ++length;
    }
    if (length == 0 && !mRest.empty()) {
        length = 1;
        for (const std::string_view pair : {"==", "!=", "<=", ">=", "&&", "||"}) {
            if (mRest.starts_with(pair)) {
                length = pair.size();
            }
        }
    }
    mToken = mRest.substr(0, length);
    mRest.remove_prefix(length);
}

bool SeccompExpression::take(std::string_view token) {
    const bool taken = mToken == token;
    if (taken) {
        advance();
    }
    return taken;
}

bool SeccompExpression::fail(const std::string& reason) {
    if (mError.empty()) {
        mError = reason;
    }
    return false;
}

bool SeccompExpression::parseReturn(int& error_number) {
    const std::string_view name = mToken;
    const std::optional<uint64_t> number = toNumber(name);
    if (number.has_value() && *number >= 1 && *number <= kMaxErrorNumber) {
        error_number = static_cast<int>(*number);
    } else if (const std::optional<int> named = seccompErrorNumber(name)) {
        error_number = *named;
    } else {
        return fail("\"" + std::string(name) + "\" is no error");
    }
    advance();
    return true;
}

bool SeccompExpression::parseAlternative(std::vector<SeccompCondition>& conditions) {
    do {
        if (conditions.size() == SeccompPolicy::kMaxConditions) {
            return fail("too many conditions");
        }
        if (!parseCondition(conditions.emplace_back())) {
            return false;
        }
    } while (take("&&"));
    return true;
}

bool SeccompExpression::parseCondition(SeccompCondition& condition) {
    const std::string_view name = mToken;
    const bool argument = name.size() == 4 && name.starts_with("arg") && name[3] >= '0' &&
                          name[3] <= static_cast<char>('0' + kMaxArgument);
    if (!argument) {
        return fail("\"" + std::string(name) + "\" where arg0 to arg5 is expected");
    }
    condition.argument = static_cast<uint32_t>(name[3] - '0');
    advance();
    return parseOperator(condition.compare) && parseValue(condition.value, 0);
}

bool SeccompExpression::parseOperator(SeccompOperator& compare) {
    static constexpr struct {
        std::string_view token;
        SeccompOperator compare;
    } kOperators[] = {
        {"==", SeccompOperator::kEqual},  {"!=", SeccompOperator::kNotEqual},
        {"<", SeccompOperator::kLess},    {"<=", SeccompOperator::kLessOrEqual},
        {">", SeccompOperator::kGreater}, {">=", SeccompOperator::kGreaterOrEqual},
        {"&", SeccompOperator::kAnyBit},  {"in", SeccompOperator::kOnlyBits},
    };
    for (const auto& each : kOperators) {
        if (take(each.token)) {
            compare = each.compare;
            return true;
        }
    }
    return fail("\"" + std::string(mToken) + "\" is no operator");
}

bool SeccompExpression::parseValue(uint64_t& value, int depth) {
    value = 0;
    do {
        uint64_t term = 0;
        if (!parseTerm(term, depth)) {
            return false;
        }
        value |= term;
    } while (take("|"));
    return true;
}

bool SeccompExpression::parseTerm(uint64_t& value, int depth) {
    if (depth > kMaxDepth) {
        return fail("too deep");
    }
    if (take("~")) {
        const bool understood = parseTerm(value, depth + 1);
        value = ~value;
        return understood;
    }
    if (take("-")) {
        const std::optional<uint64_t> number = toNumber(mToken);
        if (!number.has_value()) {
            return fail("a number expected behind \"-\"");
        }
        value = 0 - *number;
        advance();
        return true;
    }
    if (take("(")) {
        return parseValue(value, depth + 1) && (take(")") || fail("\")\" expected"));
    }
    std::optional<uint64_t> known = toNumber(mToken);
    if (!known.has_value()) {
        known = seccompConstant(mToken);
    }
    if (!known.has_value()) {
        return fail("\"" + std::string(mToken) + "\" is no known value");
    }
    value = *known;
    advance();
    return true;
}

}  // namespace platform
