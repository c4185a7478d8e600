#pragma once

#include <string>
#include <vector>

namespace chaos::wire {

/// A socket of the name in the device's socket directory, with a new file; the old one's goes. Ends the process when
/// that fails: without sockets the run means nothing.
[[nodiscard]] int bindName(const std::string& name);
void removeName(const std::string& name);

/// Sends a datagram with these descriptors to a participant; waits while it is full, 30 seconds at most.
/// @return 0, or the errno
int send(const std::string& participant, const std::string& bytes, const std::vector<int>& files = {});
/// The bytes as a message: within a datagram up to 64 KiB, in a sealed memory file beyond, or when `file` says so.
int sendMessage(const std::string& participant, const std::string& bytes, bool file = false);
/// A memory file with that content and these seals; 0 for none.
[[nodiscard]] int memoryFile(const std::string& bytes, int seals);
[[nodiscard]] int allSeals();

/// What waits at the socket, without waiting for more; descriptors are read and closed.
[[nodiscard]] std::vector<std::string> drain(int socket);

}  // namespace chaos::wire
