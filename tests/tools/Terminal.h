#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace test_support {

/// A program on a terminal of its own, 80 columns wide: standard input, output and error. One thread. It is ended with
/// the object.
class Terminal {
public:
    /// @param environment "NAME=VALUE", added; TERM is "xterm" and NO_COLOR unset otherwise
    explicit Terminal(const std::string& executable, std::vector<std::string> arguments,
                      const std::vector<std::string>& environment = {});
    ~Terminal();
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    void signal(int number) const;
    /// Reads until the text has come; false when the program ended without it, or after 30 seconds.
    [[nodiscard]] bool waitFor(const std::string& text);
    /// Reads to the end. @return the exit status; -1 for anything else
    [[nodiscard]] int wait();
    /// Everything so far; line ends are "\r\n".
    [[nodiscard]] const std::string& output() const { return mOutput; }

private:
    bool read();

    pid_t mPid = -1;
    int mMaster = -1;
    std::string mOutput;
};

}  // namespace test_support
