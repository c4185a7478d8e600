#include <csignal>
#include <filesystem>

#include "support/HttpServer.h"
#include "tools/MqctlFixture.h"
#include "tools/Terminal.h"

namespace test_support {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

class MqctlTerminalTest : public MqctlFixture {};

constexpr const char* kEscape = "\033[";

TEST_F(MqctlTerminalTest, ColourIsForTerminalsThatWantIt) {
    const TestClient alive("alive");
    struct Case {
        std::vector<std::string> arguments;
        std::vector<std::string> environment;
        bool colour;
    };
    for (const auto& [arguments, environment, colour] :
         {Case{{"list"}, {}, true}, Case{{"list"}, {"NO_COLOR=1"}, false}, Case{{"list"}, {"NO_COLOR="}, true},
          Case{{"list"}, {"TERM=dumb"}, false}, Case{{"list", "--color=always"}, {"NO_COLOR=1"}, true},
          Case{{"list", "--color=never"}, {}, false}, Case{{"list", "-j", "--color=always"}, {}, false}}) {
        Terminal terminal(mqctlPath(), arguments, environment);
        EXPECT_EQ(terminal.wait(), 0);
        EXPECT_THAT(terminal.output(), HasSubstr("alive"));
        EXPECT_EQ(terminal.output().find(kEscape) != std::string::npos, colour) << terminal.output();
    }
    EXPECT_THAT(mqctl("list").out, Not(HasSubstr(kEscape)));
    EXPECT_THAT(mqctl("list --color=always").out, HasSubstr(kEscape));
}

TEST_F(MqctlTerminalTest, JsonIsIndentedOnATerminal) {
    const TestClient alive("alive");
    Terminal terminal(mqctlPath(), {"-j"});
    EXPECT_EQ(terminal.wait(), 0);
    EXPECT_THAT(terminal.output(), HasSubstr("[\r\n  {\r\n    \"name\": \"alive\",\r\n"));
}

TEST_F(MqctlTerminalTest, TableIsCutToTheTerminal) {
    const TestClient longest(std::string(75, 'n'));
    Terminal terminal(mqctlPath(), {"--no-legend", "--color=never"});
    EXPECT_EQ(terminal.wait(), 0);
    EXPECT_EQ(terminal.output().find("\r\n"), 80U) << terminal.output();
    EXPECT_GT(mqctl("--no-legend").out.size(), 90U);
}

TEST_F(MqctlTerminalTest, CountdownIsDrawnAndErased) {
    const TestClient mute("mute");
    Terminal waiting(mqctlPath(), {"ping", "mute", "-w", "1s"});
    EXPECT_EQ(waiting.wait(), 5);
    EXPECT_THAT(waiting.output(),
                testing::ContainsRegex("\r\033\\[Kmute  0\\.[0-9] s / 1 s.*\r\033\\[K.*no answer within 1 s\r\n$"));
    Terminal quiet(mqctlPath(), {"ping", "mute", "-w", "1s", "-q"});
    EXPECT_EQ(quiet.wait(), 5);
    EXPECT_THAT(quiet.output(), Not(HasSubstr(" / 1 s")));
}

TEST_F(MqctlTerminalTest, SignalErasesTheCountdownAndTheSocket) {
    const TestClient mute("mute");
    Terminal waiting(mqctlPath(), {"get", "http://a", "--to", "mute", "--from", "me"});
    ASSERT_TRUE(waiting.waitFor(" / 62 s"));
    waiting.signal(SIGINT);
    EXPECT_EQ(waiting.wait(), 130);
    EXPECT_THAT(waiting.output(), testing::EndsWith("\r\033[K"));
    EXPECT_FALSE(std::filesystem::exists(socketPath("me")));
}

TEST_F(MqctlTerminalTest, BodyWithZeroBytesIsNotDumped) {
    const auto run = [](std::vector<std::string> more) {
        TestClient played("played");
        std::vector<std::string> arguments = {"get", "http://a", "--to", "played"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        Terminal terminal(mqctlPath(), arguments);
        const Card request = played.receive().value();
        played.send(result(request, 200, std::string("\0binary", 7)));
        const int code = terminal.wait();
        return std::pair(code, terminal.output());
    };
    EXPECT_THAT(run({}), testing::Pair(2, AllOf(HasSubstr("-o FILE"), Not(HasSubstr("binary")))));
    EXPECT_THAT(run({"-o", "-"}), testing::Pair(0, HasSubstr("binary")));
    Terminal bytes(mqctlPath(), {"encode", "/dev/null"});
    EXPECT_EQ(bytes.wait(), 3);
}

}  // namespace
}  // namespace test_support
