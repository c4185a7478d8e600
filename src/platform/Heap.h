#pragma once

/// The heap and the system's memory. Any thread.
namespace heap {

/// From now on freed memory stays with the process, for what is asked for next: a large message is then worth its copies
/// and not as many page faults again. Once, before other threads exist.
void keepFreedMemory();

/// Gives back to the system what is not in use. Takes milliseconds: for a thread that has nothing else to do.
void returnFreedMemory();

}  // namespace heap
