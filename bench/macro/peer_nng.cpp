// The messages' bytes over nng: pairs of one socket each.

#include <nng/nng.h>
#include <nng/protocol/pair0/pair.h>

#include "macro/bytes_echo.h"

namespace bench {

namespace {

class NngEnd : public BytesEnd {
public:
    NngEnd(const std::string& path, bool server) {
        const std::string address = "ipc://" + path;
        const auto join = [&] {
            return (server ? nng_listen(mSocket, address.c_str(), nullptr, 0)
                           : nng_dial(mSocket, address.c_str(), nullptr, 0)) == 0;
        };
        // The other's file is there a moment before it listens.
        if (nng_pair0_open(&mSocket) != 0 || nng_socket_set_ms(mSocket, NNG_OPT_RECVTIMEO, kEchoPatienceMs) != 0 ||
            !waitFor(nullptr, join)) {
            die("nng has no way to " + address);
        }
    }
    ~NngEnd() override { (void)nng_close(mSocket); }
    NngEnd(const NngEnd&) = delete;
    NngEnd& operator=(const NngEnd&) = delete;

    bool send(const char* data, std::size_t size) override {
        return nng_send(mSocket, const_cast<char*>(data), size, 0) == 0;
    }
    bool receive(char* data, std::size_t size) override { return nng_recv(mSocket, data, &size, 0) == 0; }

private:
    nng_socket mSocket{};
};

const RegisterExchange kRow(bytesRow("nng", [](const std::string& path, bool server) {
    return std::make_unique<NngEnd>(path, server);
}));

}  // namespace

}  // namespace bench
