#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>

#include "Ledger.h"

namespace chaos {

/// What the agent's process holds.
struct Vitals {
    size_t anonymousKiB = 0;
    /// Descriptors but sockets that are not local, and those.
    size_t files = 0;
    size_t connections = 0;

    [[nodiscard]] static Vitals of(pid_t process);
    /// The least of some seconds: a look-up that nobody waits for any more may still hold its socket.
    [[nodiscard]] static Vitals settled(pid_t process);
    [[nodiscard]] std::string text() const;
};

/// Compares them, and says what was lost.
void compareVitals(const Vitals& before, const Vitals& after, Ledger& ledger);

/// What the agent's log tells: each job that its worker ended without a result must be explained by its request, and
/// no sanitizer has complained. @return how many such jobs there were
size_t readLog(const std::string& log, Ledger& ledger);

}  // namespace chaos
