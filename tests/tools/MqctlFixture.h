#pragma once

#include <functional>
#include <string>
#include <vector>

#include "e2e/E2eTest.h"
#include "support/files.h"

namespace test_support {

/// The tool's executable.
[[nodiscard]] const char* mqctlPath();

class MqctlFixture : public E2eTest {
protected:
    struct Run {
        int code;
        std::string out;
        std::string err;
    };

    /// Through the shell: the arguments are quoted as one would.
    [[nodiscard]] Run mqctl(const std::string& arguments, const std::string& input = "") const;
    /// Runs it against a participant of the test's, which answers with what is made of the request.
    [[nodiscard]] Run mqctlAnswered(const std::string& arguments,
                                    const std::function<std::vector<Card>(const Card&)>& answer) const;
    /// A running one, for commands that go on.
    [[nodiscard]] static AgentProcess::Options words(const std::string& arguments);

    TempDir mDirectory;
};

}  // namespace test_support
