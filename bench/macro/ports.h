#pragma once

namespace bench {

/// A port of the loopback that nobody listens on just now.
int freePort();
/// Whether somebody listens there.
bool listensAt(int port);

}  // namespace bench
