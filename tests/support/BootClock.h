#pragma once

namespace test_support {

/// Stops the boot clock of the test process, which arrival times, deadlines and local timers are read from; it moves
/// only when a test says so, and runs on as it should when the object goes. One at a time; any thread may read the
/// clock. A loop that waits looks at it again with its next message. Programs that use it link test_boot_clock.
class BootClock {
public:
    BootClock();
    ~BootClock();
    BootClock(const BootClock&) = delete;
    BootClock& operator=(const BootClock&) = delete;

    void advance(double seconds);
    /// From now on it cannot be read.
    void fail();
};

}  // namespace test_support
