#include "platform/workstation/SeccompPolicy.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>

#include <map>
#include <string>

namespace platform {
namespace {

/// "1", or alternatives like "0==5&&1in3", and what else, like "else 13".
std::string describe(const SeccompRule& rule) {
    static constexpr const char* kOperators[] = {"==", "!=", "<", "<=", ">", ">=", " & ", " in "};
    std::string text = rule.allowed ? "1 " : "";
    for (const auto& conditions : rule.alternatives) {
        for (const SeccompCondition& condition : conditions) {
            text += std::to_string(condition.argument) + kOperators[static_cast<size_t>(condition.compare)] +
                    std::to_string(condition.value) + (&condition == &conditions.back() ? " " : " && ");
        }
        text += "|| ";
    }
    return text + "else " + std::to_string(rule.error_number);
}

SeccompPolicy makePolicy(const std::map<std::string, std::string>& files) {
    return SeccompPolicy([files](const std::string& path, std::string& content) {
        const auto found = files.find(path);
        content = found != files.end() ? found->second : "";
        return found != files.end();
    });
}

TEST(SeccompPolicy, UnderstoodLinesBecomeRules) {
    const struct {
        const char* content;
        const char* rule;
    } cases[] = {
        {"ioctl: 1", "1 else 0"},
        {"  ioctl :  allow # whatever: x\r\n\n", "1 else 0"},
        {"ioctl: return 1", "else 1"},
        {"ioctl: return EACCES", "else 13"},
        {"ioctl: arg1 == TCGETS", "1==21505 || else 0"},
        {"ioctl: arg0 == 5 || arg1 in 0x1|02 && arg2 & 4", "0==5 || 1 in 3 && 2 & 4 || else 0"},
        {"ioctl: arg5!=1||arg4<2||arg3<=3||arg2>4||arg1>=5", "5!=1 || 4<2 || 3<=3 || 2>4 || 1>=5 || else 0"},
        {"ioctl: arg0 == AF_UNIX; return EPERM", "0==1 || else 1"},
        {"ioctl: arg2 in ~PROT_EXEC", "2 in 18446744073709551611 || else 0"},
        {"ioctl: arg2 in ~(PROT_EXEC | PROT_WRITE)", "2 in 18446744073709551609 || else 0"},
        {"ioctl: arg0 == -1", "0==18446744073709551615 || else 0"},
        {"ioctl: arg0 == 1 || \\\n  arg0 == 2 \\\n", "0==1 || 0==2 || else 0"},
        {"# a comment \\\nioctl: 1", "1 else 0"},
        {"ioctl: arg0 == 1\nioctl: arg0 == 2; return 5\n", "0==1 || 0==2 || else 5"},
        {"@include more", "1 else 0"},
        {"@include /etc/all", "else 7"},
    };
    for (const auto& each : cases) {
        SeccompPolicy policy = makePolicy({{"/vendor/more", "ioctl: 1\n"}, {"/etc/all", "ioctl: return 7"}});
        EXPECT_TRUE(policy.parse("/vendor/base", each.content)) << policy.error();
        ASSERT_EQ(policy.rules().size(), 1U) << each.content;
        EXPECT_EQ(policy.rules().begin()->first, SYS_ioctl);
        EXPECT_EQ(describe(policy.rules().begin()->second), each.rule) << each.content;
    }
}

TEST(SeccompPolicy, LineThatIsNotUnderstoodIsNamed) {
    const std::string deep(100, '(');
    std::string conditions = "arg0 == 1";
    std::string alternatives = "arg0 == 1";
    for (int i = 0; i < 300; ++i) {
        conditions += "&& arg0 == 1";
        alternatives += "|| arg0 == 1";
    }
    const struct {
        std::string content;
        const char* error;
    } cases[] = {
        {"read: 1\n\nioctl 1\n", "f:3: neither"},
        {"read: 1 \\\n || \\\n\n", "f:1: \"||\" is too much"},
        {"no_such_call: 1", "f:1: \"no_such_call\" is no system call"},
        {"read: 2", "\"2\" where arg0"},
        {"read: arg0 == AF_NONSENSE", "\"AF_NONSENSE\" is no known value"},
        {"read: arg0 == 08", "is no known value"},
        {"read: arg0 == 18446744073709551616", "is no known value"},
        {"read: arg0 == (1 | 2", "\")\" expected"},
        {"read: arg0 == " + deep, "too deep"},
        {"read: " + conditions, "too many conditions"},
        {"read: " + alternatives, "too many alternatives"},
        {"read: arg0 == 1; 1", "\"return\" and an error expected"},
        {"read: return 4096", "\"4096\" is no error"},
        {"read: return 1 2", "\"2\" is too much"},
        {"read: return 1\nread: return 2", "f:2: \"read\" fails with another error"},
        {"@include absent", "f:1: cannot read \"absent\""},
        {"@include bad", "bad:2: neither"},
        {"@include itself", "itself:1: too many files"},
    };
    for (const auto& each : cases) {
        SeccompPolicy policy = makePolicy({{"bad", "\nnonsense"}, {"itself", "@include itself\n@include itself"}});
        EXPECT_FALSE(policy.parse("f", each.content)) << each.content;
        EXPECT_THAT(policy.error(), testing::HasSubstr(each.error)) << each.content;
    }
}

}  // namespace
}  // namespace platform
