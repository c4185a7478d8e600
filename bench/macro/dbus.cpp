// Buses of our own, and what every service and client on them needs.

#include "macro/dbus.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>

#include "support/files.h"

namespace bench {

namespace {

constexpr std::uint64_t kPatienceUs = 60'000'000;

/// Everybody may do everything, and large messages pass.
constexpr const char* kConfiguration =
    R"(<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>session</type>
  <listen>unix:path=/nowhere</listen>
  <auth>EXTERNAL</auth>
  <policy context="default"><allow send_destination="*"/><allow receive_sender="*"/><allow own="*"/></policy>
  <limit name="max_incoming_bytes">1000000000</limit>
  <limit name="max_outgoing_bytes">1000000000</limit>
  <limit name="max_message_size">1000000000</limit>
</busconfig>
)";

int socketAt(const std::string& path, int type) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    (void)std::snprintf(address.sun_path, sizeof(address.sun_path), "%s", path.c_str());
    const int made = ::socket(AF_UNIX, type, 0);
    (void)::unlink(path.c_str());
    const bool bound = ::bind(made, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
    return bound && ((type & SOCK_STREAM) == 0 || ::listen(made, SOMAXCONN) == 0) ? made : -1;
}

/// The broker's launcher wants a socket of the system's log, used or not.
void provideLogSocket() {
    constexpr const char* kLogSocket = "/run/systemd/journal/socket";
    if (::access(kLogSocket, F_OK) == 0 || ::unshare(CLONE_NEWNS) != 0 ||
        ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        ::mount("bench", "/run", "tmpfs", 0, nullptr) != 0) {
        return;
    }
    (void)::mkdir("/run/systemd", 0755);
    (void)::mkdir("/run/systemd/journal", 0755);
    (void)socketAt(kLogSocket, SOCK_DGRAM);  // open as long as the launcher runs
}

/// As a service manager hands it over: the listening socket is descriptor 3. The launcher is its own first client.
void handOver(int listener, const std::string& address) {
    provideLogSocket();
    (void)::dup2(listener, 3);
    (void)::fcntl(3, F_SETFD, 0);
    (void)::setenv("LISTEN_FDS", "1", 1);                                 // NOLINT(concurrency-mt-unsafe)
    (void)::setenv("LISTEN_PID", std::to_string(::getpid()).c_str(), 1);  // NOLINT(concurrency-mt-unsafe)
    (void)::setenv("DBUS_SESSION_BUS_ADDRESS", address.c_str(), 1);       // NOLINT(concurrency-mt-unsafe)
}

pid_t childOf(pid_t pid) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/task/" + std::to_string(pid) + "/children");
    pid_t child = -1;
    file >> child;
    return child;
}

bool answers(const std::string& address) {
    sd_bus* bus = nullptr;
    if (sd_bus_new(&bus) < 0) {
        return false;
    }
    const BusConnection owned(bus);
    const char* name = nullptr;
    return sd_bus_set_address(bus, address.c_str()) >= 0 && sd_bus_set_bus_client(bus, 1) >= 0 &&
           sd_bus_start(bus) >= 0 && sd_bus_get_unique_name(bus, &name) >= 0;
}

}  // namespace

std::unique_ptr<Bus> Bus::start(Kind kind, const Stage& stage, std::string* why) {
    const bool broker = kind == Kind::kBroker;
    const std::string program = findProgram(broker ? "dbus-broker-launch" : "dbus-daemon");
    if (program.empty()) {
        *why = "it is not installed";
        return nullptr;
    }
    const std::string configuration = stage.directory + "/bus.conf";
    const std::string path = stage.directory + (broker ? "/bus-broker" : "/bus-daemon");
    test_support::writeFile(configuration, kConfiguration);
    (void)::unlink(path.c_str());

    auto bus = std::make_unique<Bus>();
    bus->mAddress = "unix:path=" + path;
    if (broker) {
        const int listener = socketAt(path, SOCK_STREAM | SOCK_CLOEXEC);
        if (listener < 0 || ::access("/etc/machine-id", R_OK) != 0) {
            *why = "no socket, or no /etc/machine-id";
            return nullptr;
        }
        bus->mProcess = Process::start({program, "--scope", "user", "--config-file", configuration},
                                       [&] { handOver(listener, bus->mAddress); });
        (void)::close(listener);
        if (!waitFor(&bus->mProcess, [&] { return childOf(bus->mProcess.pid()) > 0; })) {
            *why = "its launcher does not come up; it needs systemd's journal, or the right to mount";
            return nullptr;
        }
        bus->mPid = childOf(bus->mProcess.pid());
    } else {
        bus->mProcess = Process::start({program, "--config-file=" + configuration, "--address=" + bus->mAddress,
                                        "--nofork", "--nopidfile", "--nosyslog"});
        bus->mPid = bus->mProcess.pid();
    }
    if (!waitFor(&bus->mProcess, [&] { return answers(bus->mAddress); })) {
        *why = "it does not come up";
        return nullptr;
    }
    return bus;
}

BusConnection connectTo(const std::string& address) {
    sd_bus* bus = nullptr;
    if (sd_bus_new(&bus) < 0 || sd_bus_set_address(bus, address.c_str()) < 0 || sd_bus_set_bus_client(bus, 1) < 0 ||
        sd_bus_negotiate_fds(bus, 1) < 0 || sd_bus_start(bus) < 0) {
        die("no connection to the bus at " + address);
    }
    return BusConnection(bus);
}

void serveOn(const std::string& address, const sd_bus_vtable* methods, void* userData) {
    const BusConnection bus = connectTo(address);
    if (sd_bus_add_object_vtable(bus.get(), nullptr, kObject, kService, methods, userData) < 0 ||
        sd_bus_request_name(bus.get(), kService, 0) < 0) {
        return;
    }
    for (;;) {
        const int done = sd_bus_process(bus.get(), nullptr);
        if (done < 0 || (done == 0 && sd_bus_wait(bus.get(), UINT64_MAX) < 0)) {
            return;
        }
    }
}

void awaitService(sd_bus* bus, Process* service) {
    const bool up = waitFor(service, [&] {
        return sd_bus_call_method(bus, kService, kObject, "org.freedesktop.DBus.Peer", "Ping", nullptr, nullptr, "") >=
               0;
    });
    if (!up) {
        die("the service on the bus does not come up");
    }
}

BusMessage newCall(sd_bus* bus, const char* method) {
    sd_bus_message* message = nullptr;
    if (sd_bus_message_new_method_call(bus, &message, kService, kObject, kService, method) < 0) {
        die("no message for the bus");
    }
    return BusMessage(message);
}

BusMessage call(sd_bus* bus, const BusMessage& message) {
    sd_bus_message* reply = nullptr;
    if (const int result = sd_bus_call(bus, message.get(), kPatienceUs, nullptr, &reply); result < 0) {
        die(std::string("a call over the bus: ") + std::strerror(-result));  // NOLINT(concurrency-mt-unsafe)
    }
    return BusMessage(reply);
}

}  // namespace bench
