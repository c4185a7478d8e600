#include "Countdown.h"

#include <cstdio>
#include <utility>

#include "SignalCleanup.h"
#include "Text.h"

namespace mqctl {

namespace {

/// The line must not wrap, or it could not be redrawn.
constexpr size_t kLabelColumns = 50;
/// Without a deadline worth naming.
constexpr std::chrono::hours kForEver{1000};

}  // namespace

Countdown::Countdown(const std::string& label, Clock::time_point deadline)
    : mLabel(cutTo(printable(label), kLabelColumns)), mDeadline(deadline) {}

Countdown::~Countdown() {
    if (mShown) {
        std::fputs(kEraseLine, stderr);
        (void)std::fflush(stderr);
        SignalCleanup::setLineShown(false);
    }
}

void Countdown::draw() {
    SignalCleanup::setLineShown(true);
    mShown = true;
    char line[120];
    const double passed = std::chrono::duration<double>(Clock::now() - mBegin).count();
    if (mDeadline - mBegin > kForEver) {
        (void)std::snprintf(line, sizeof(line), "%s%s  %.1f s", kEraseLine, mLabel.c_str(), passed);
    } else {
        const double total = std::chrono::duration<double>(mDeadline - mBegin).count();
        (void)std::snprintf(line, sizeof(line), "%s%s  %.1f s / %.0f s", kEraseLine, mLabel.c_str(), passed, total);
    }
    std::fputs(line, stderr);
    (void)std::fflush(stderr);
}

}  // namespace mqctl
