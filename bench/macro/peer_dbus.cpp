// A service on a bus, as one would write it: it gets a body with a warm handle of libcurl and hands it over in the reply,
// or in a sealed file. And an echo.

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <utility>

#include "macro/dbus.h"
#include "macro/libcurl.h"

namespace bench {

namespace {

using Reply = BusMessage;

int getInMessage(sd_bus_message* call, void* curl, sd_bus_error* /*error*/) {
    const char* url = nullptr;
    std::string body;
    sd_bus_message* reply = nullptr;
    if (sd_bus_message_read(call, "s", &url) < 0) {
        return -EINVAL;
    }
    static_cast<Libcurl*>(curl)->get(url, &body);
    if (sd_bus_message_new_method_return(call, &reply) < 0) {
        return -ENOMEM;
    }
    const Reply owned(reply);
    const int appended = sd_bus_message_append_array(reply, 'y', body.data(), body.size());
    return appended < 0 ? appended : sd_bus_send(nullptr, reply, nullptr);
}

int getInFile(sd_bus_message* call, void* curl, sd_bus_error* /*error*/) {
    const char* url = nullptr;
    std::string body;
    if (sd_bus_message_read(call, "s", &url) < 0) {
        return -EINVAL;
    }
    static_cast<Libcurl*>(curl)->get(url, &body);
    const int file = ::memfd_create("body", MFD_CLOEXEC | MFD_ALLOW_SEALING);
    std::size_t written = 0;
    while (written < body.size()) {
        const ssize_t piece = ::write(file, body.data() + written, body.size() - written);
        if (piece <= 0) {
            (void)::close(file);
            return -EIO;
        }
        written += static_cast<std::size_t>(piece);
    }
    (void)::fcntl(file, F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE | F_SEAL_SEAL);
    const int sent = sd_bus_reply_method_return(call, "ht", file, static_cast<std::uint64_t>(written));
    (void)::close(file);
    return sent;
}

int echo(sd_bus_message* call, void* /*userData*/, sd_bus_error* /*error*/) {
    const void* data = nullptr;
    std::size_t size = 0;
    sd_bus_message* reply = nullptr;
    if (sd_bus_message_read_array(call, 'y', &data, &size) < 0) {
        return -EINVAL;
    }
    if (sd_bus_message_get_expect_reply(call) == 0) {
        return 1;
    }
    if (sd_bus_message_new_method_return(call, &reply) < 0) {
        return -ENOMEM;
    }
    const Reply owned(reply);
    const int appended = sd_bus_message_append_array(reply, 'y', data, size);
    return appended < 0 ? appended : sd_bus_send(nullptr, reply, nullptr);
}

constexpr sd_bus_vtable kMethods[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("Get", "s", "ay", getInMessage, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("GetFile", "s", "ht", getInFile, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("Echo", "ay", "ay", echo, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

constexpr const char* kServiceRole = "service";

/// @param arguments the bus's address, the file of authorities
const RegisterRole kRole(kServiceRole, [](const std::vector<std::string>& arguments) {
    Libcurl curl;
    curl.trust(arguments.at(1));
    serveOn(arguments.at(0), kMethods, &curl);
});

/// A bus, the service on it, and this process's connection.
class Service {
public:
    Service(std::unique_ptr<Bus> bus, const Stage& stage)
        : mBus(std::move(bus)),
          mService(Process::as(kServiceRole, {mBus->address(), stage.caFile})),
          mConnection(connectTo(mBus->address())) {
        awaitService(connection(), &mService);
    }
    [[nodiscard]] sd_bus* connection() const { return mConnection.get(); }
    [[nodiscard]] std::vector<pid_t> servants() const { return {mBus->pid(), mService.pid()}; }

private:
    std::unique_ptr<Bus> mBus;
    Process mService;
    BusConnection mConnection;
};

class OverBus : public Getter {
public:
    OverBus(std::unique_ptr<Bus> bus, const Stage& stage, bool inFile)
        : mService(std::move(bus), stage), mInFile(inFile) {}
    std::size_t get(const std::string& url) override {
        const BusMessage request = newCall(mService.connection(), mInFile ? "GetFile" : "Get");
        if (sd_bus_message_append(request.get(), "s", url.c_str()) < 0) {
            die("no message for the bus");
        }
        const Reply reply = call(mService.connection(), request);
        return mInFile ? takeFile(reply) : takeBytes(reply);
    }
    [[nodiscard]] std::vector<pid_t> servants() const override { return mService.servants(); }

private:
    static std::size_t takeBytes(const Reply& reply) {
        const void* data = nullptr;
        std::size_t size = 0;
        if (sd_bus_message_read_array(reply.get(), 'y', &data, &size) < 0) {
            return 0;
        }
        touch(data, size);
        return size;
    }
    static std::size_t takeFile(const Reply& reply) {
        int file = -1;
        std::uint64_t size = 0;
        if (sd_bus_message_read(reply.get(), "ht", &file, &size) < 0) {
            return 0;
        }
        void* const data = ::mmap(nullptr, size, PROT_READ, MAP_PRIVATE | MAP_POPULATE, file, 0);
        if (data == MAP_FAILED) {
            return 0;
        }
        touch(data, size);
        (void)::munmap(data, size);
        return size;
    }

    Service mService;
    bool mInFile;
};

class EchoOverBus : public Work {
public:
    EchoOverBus(std::unique_ptr<Bus> bus, const Stage& stage, bool oneWay)
        : mService(std::move(bus), stage), mOneWay(oneWay) {}
    std::vector<double> run(std::size_t n) override {
        return timedRuns(n, batch(), [this](bool last) { send(last); });
    }
    [[nodiscard]] std::size_t batch() const override { return mOneWay ? kRunLength : 1; }
    [[nodiscard]] std::vector<pid_t> servants() const override { return mService.servants(); }

private:
    /// The payload that a card of 200 bytes has; the bus adds what it needs.
    void send(bool answered) {
        static const std::array<char, 108> payload{};
        const BusMessage message = newCall(mService.connection(), "Echo");
        if (sd_bus_message_append_array(message.get(), 'y', payload.data(), payload.size()) < 0) {
            die("no message for the bus");
        }
        if (!answered) {
            (void)sd_bus_message_set_expect_reply(message.get(), 0);
            (void)sd_bus_send(mService.connection(), message.get(), nullptr);
            return;
        }
        const Reply reply = call(mService.connection(), message);
        const void* data = nullptr;
        std::size_t size = 0;
        if (sd_bus_message_read_array(reply.get(), 'y', &data, &size) < 0 || size != payload.size()) {
            die("the echo over the bus is another");
        }
    }

    Service mService;
    bool mOneWay;
};

RegisterExchange getting(const char* subject, Bus::Kind kind, std::vector<std::string> tables, bool inFile) {
    return RegisterExchange(gettingRow(
        subject, std::move(tables), [kind, inFile](const Stage& stage, std::string* why) -> std::unique_ptr<Getter> {
            std::unique_ptr<Bus> bus = Bus::start(kind, stage, why);
            return bus != nullptr ? std::make_unique<OverBus>(std::move(bus), stage, inFile) : nullptr;
        }));
}

RegisterExchange echoing(const char* subject, Bus::Kind kind) {
    return RegisterExchange(ExchangeRow{
        subject,
        {"message/round-trip", "message/one-way"},
        [kind](const Stage& stage, const std::string& table, std::string* why) -> std::unique_ptr<Work> {
            std::unique_ptr<Bus> bus = Bus::start(kind, stage, why);
            return bus != nullptr ? std::make_unique<EchoOverBus>(std::move(bus), stage, table == "message/one-way")
                                  : nullptr;
        }});
}

const RegisterExchange kRows[] = {
    getting("service on dbus-broker", Bus::Kind::kBroker, kSmall, false),
    getting("service on dbus-daemon", Bus::Kind::kDaemon, kSmall, false),
    getting("service on dbus-broker, memfd", Bus::Kind::kBroker, kLarge, true),
    getting("service on dbus-daemon, memfd", Bus::Kind::kDaemon, kLarge, true),
    getting("service on dbus-broker, in the message", Bus::Kind::kBroker, kLarge, false),
    getting("service on dbus-daemon, in the message", Bus::Kind::kDaemon, kLarge, false),
    echoing("dbus-broker", Bus::Kind::kBroker),
    echoing("dbus-daemon", Bus::Kind::kDaemon),
};

}  // namespace

}  // namespace bench
