#pragma once

#include <string>
#include <string_view>

#include "platform/workstation/SeccompPolicy.h"

namespace platform {

/// Reads what stands behind the colon of a policy's line: "1", "return EPERM", "arg0 == 5 || arg1 & 2; return 1".
class SeccompExpression {
public:
    explicit SeccompExpression(std::string_view text) : mRest(text) { advance(); }

    /// @return false when it is not understood; see error()
    bool parse(SeccompRule& rule);

    [[nodiscard]] const std::string& error() const { return mError; }

private:
    /// To the next word (letters, digits, "_") or operator; empty at the end.
    void advance();
    /// Takes the current token if it is this one.
    bool take(std::string_view token);
    bool fail(const std::string& reason);

    bool parseReturn(int& error_number);
    bool parseAlternative(std::vector<SeccompCondition>& conditions);
    bool parseCondition(SeccompCondition& condition);
    bool parseOperator(SeccompOperator& compare);
    bool parseValue(uint64_t& value, int depth);
    bool parseTerm(uint64_t& value, int depth);

    std::string_view mRest;
    std::string_view mToken;
    std::string mError;
};

}  // namespace platform
