#pragma once

#include <systemd/sd-bus.h>

#include <memory>
#include <string>
#include <vector>

#include "macro/macro.h"

namespace bench {

/// A private message bus, for the run alone.
class Bus {
public:
    enum class Kind { kBroker, kDaemon };

    /// @return null: it cannot be had here, and why
    static std::unique_ptr<Bus> start(Kind kind, const Stage& stage, std::string* why);

    [[nodiscard]] const std::string& address() const { return mAddress; }
    /// What messages pass through.
    [[nodiscard]] pid_t pid() const { return mPid; }

private:
    Process mProcess;
    pid_t mPid = -1;
    std::string mAddress;
};

struct BusCloser {
    void operator()(sd_bus* bus) const { (void)sd_bus_flush_close_unref(bus); }
};
using BusConnection = std::unique_ptr<sd_bus, BusCloser>;

struct MessageCloser {
    void operator()(sd_bus_message* message) const { (void)sd_bus_message_unref(message); }
};
using BusMessage = std::unique_ptr<sd_bus_message, MessageCloser>;

inline constexpr const char* kService = "org.example.Bench";
inline constexpr const char* kObject = "/org/example/Bench";

/// Ends the program when it cannot.
BusConnection connectTo(const std::string& address);
/// In a child: serves these methods under kService until it is ended.
void serveOn(const std::string& address, const sd_bus_vtable* methods, void* userData);
/// Waits until somebody serves.
void awaitService(sd_bus* bus, Process* service);
/// A call of a method of kService, to be filled.
BusMessage newCall(sd_bus* bus, const char* method);
/// Its reply. Ends the program when that is an error.
BusMessage call(sd_bus* bus, const BusMessage& message);

}  // namespace bench
