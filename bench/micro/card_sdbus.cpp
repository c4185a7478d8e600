// The request as the a{sv} of a D-Bus method call. The library gives nobody the bytes: encoding ends with the sealed
// message, and reading starts from one.

#include <sys/socket.h>
#include <systemd/sd-bus.h>

#include "inet/AgentProtocol.h"
#include "micro/cards.h"
#include "mq/Envelope.h"

namespace bench {

namespace {

namespace envelope = zv_loc_fw::envelope;
namespace protocol = zv_loc_fw::agent_protocol;

/// Messages belong to a bus; this one leads nowhere.
sd_bus* bus() {
    static sd_bus* const kBus = [] {
        int sockets[2];
        sd_bus* made = nullptr;
        require(socketpair(AF_UNIX, SOCK_STREAM, 0, sockets) == 0 && sd_bus_new(&made) >= 0 &&
                sd_bus_set_fd(made, sockets[0], sockets[0]) >= 0 && sd_bus_start(made) >= 0);
        return made;
    }();
    return kBus;
}

template <typename... Value>
void put(sd_bus_message* message, const char* name, const char* type, Value... value) {
    require(sd_bus_message_append(message, "{sv}", name, type, value...) >= 0);
}

sd_bus_message* request() {
    sd_bus_message* message = nullptr;
    require(sd_bus_message_new_method_call(bus(), &message, "net.example.Agent", "/", "net.example.Agent", "Do") >= 0);
    require(sd_bus_message_open_container(message, 'a', "{sv}") >= 0);
    put(message, envelope::kTo, "s", kTo);
    put(message, envelope::kFrom, "s", kFrom);
    put(message, envelope::kReq, "s", kReq);
    put(message, envelope::kTxId, "i", kTxId);
    put(message, protocol::kUrl, "s", kUrl);
    put(message, protocol::kTimeoutSec, "i", kTimeoutSec);
    put(message, protocol::kForceNewConnection, "b", int{kForceNew});
    put(message, protocol::kContentType, "s", kContentType);
    put(message, protocol::kProtocolVersion, "s", kVersion);
    require(sd_bus_message_open_container(message, 'e', "sv") >= 0 &&
            sd_bus_message_append_basic(message, 's', protocol::kPostData) >= 0 &&
            sd_bus_message_open_container(message, 'v', "ay") >= 0 &&
            sd_bus_message_append_array(message, 'y', kPostData, sizeof(kPostData)) >= 0 &&
            sd_bus_message_close_container(message) >= 0 && sd_bus_message_close_container(message) >= 0);
    require(sd_bus_message_close_container(message) >= 0 && sd_bus_message_seal(message, 1, 0) >= 0);
    return message;
}

Text text(sd_bus_message* message) {
    const char* value = nullptr;
    require(sd_bus_message_read(message, "v", "s", &value) >= 0);
    return {value};
}

std::int32_t number(sd_bus_message* message) {
    std::int32_t value = 0;
    require(sd_bus_message_read(message, "v", "i", &value) >= 0);
    return value;
}

void readValue(sd_bus_message* message, std::string_view name, bool route_only, ReadRequest* read) {
    if (name == envelope::kFrom) {
        read->from = text(message);
    } else if (name == envelope::kReq) {
        read->req = text(message);
    } else if (name == envelope::kTxId) {
        read->tx_id = number(message);
    } else if (route_only) {
        require(sd_bus_message_skip(message, "v") >= 0);
    } else if (name == envelope::kTo) {
        read->to = text(message);
    } else if (name == protocol::kUrl) {
        read->url = text(message);
    } else if (name == protocol::kTimeoutSec) {
        read->timeout_sec = number(message);
    } else if (name == protocol::kForceNewConnection) {
        int value = 0;
        require(sd_bus_message_read(message, "v", "b", &value) >= 0);
        read->force_new = value != 0;
    } else if (name == protocol::kContentType) {
        read->content_type = text(message);
    } else if (name == protocol::kProtocolVersion) {
        read->version = text(message);
    } else {
        require(sd_bus_message_enter_container(message, 'v', "ay") >= 0 &&
                sd_bus_message_read_array(message, 'y', &read->data, &read->size) >= 0 &&
                sd_bus_message_exit_container(message) >= 0);
    }
}

Loop encoding() {
    return [](std::size_t n) {
        for (; n > 0; --n) {
            sd_bus_message* message = request();
            keep(message);
            sd_bus_message_unref(message);
        }
    };
}

Loop readingMessage(bool route_only) {
    return reading([message = request(), route_only](ReadRequest* read) {
        const char* name = nullptr;
        read->tx_id = 0;
        require(sd_bus_message_rewind(message, 1) >= 0 && sd_bus_message_enter_container(message, 'a', "{sv}") >= 0);
        while (sd_bus_message_enter_container(message, 'e', "sv") > 0) {
            require(sd_bus_message_read(message, "s", &name) >= 0);
            readValue(message, name, route_only, read);
            require(sd_bus_message_exit_container(message) >= 0);
            if (route_only && read->tx_id != 0) {
                break;
            }
        }
    });
}

const Register kRows[] = {
    Register(Row{"codec/request-encode", "sd-bus", encoding}),
    Register(Row{"codec/request-read-all", "sd-bus", [] { return readingMessage(false); }}),
    Register(Row{"codec/request-read-three", "sd-bus", [] { return readingMessage(true); }}),
};

}  // namespace

}  // namespace bench
