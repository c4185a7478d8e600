#pragma once

#include <string>

#include "GlobalOptions.h"

namespace mqctl {

/// "LABEL  3.2 s / 60 s" on the terminal at standard error, drawn over and over, and erased in the end.
class Countdown {
public:
    Countdown(const std::string& label, Clock::time_point deadline);
    ~Countdown();
    Countdown(const Countdown&) = delete;
    Countdown& operator=(const Countdown&) = delete;

    void draw();

private:
    const std::string mLabel;
    const Clock::time_point mBegin = Clock::now();
    const Clock::time_point mDeadline;
    bool mShown = false;
};

}  // namespace mqctl
