// The messages' bytes over ZeroMQ: pairs of one socket each.

#include <zmq.h>

#include <array>

#include "macro/bytes_echo.h"

namespace bench {

namespace {

class ZmqEnd : public BytesEnd {
public:
    ZmqEnd(const std::string& path, bool server) : mContext(zmq_ctx_new()), mSocket(zmq_socket(mContext, ZMQ_PAIR)) {
        const int patience = kEchoPatienceMs;
        const int linger = 0;
        (void)zmq_setsockopt(mSocket, ZMQ_LINGER, &linger, sizeof(linger));
        (void)zmq_setsockopt(mSocket, ZMQ_RCVTIMEO, &patience, sizeof(patience));
        const std::string address = "ipc://" + path;
        if ((server ? zmq_bind(mSocket, address.c_str()) : zmq_connect(mSocket, address.c_str())) != 0) {
            die("ZeroMQ has no way to " + address);
        }
    }
    ~ZmqEnd() override {
        (void)zmq_close(mSocket);
        (void)zmq_ctx_term(mContext);
    }
    ZmqEnd(const ZmqEnd&) = delete;
    ZmqEnd& operator=(const ZmqEnd&) = delete;

    bool send(const char* data, std::size_t size) override { return zmq_send(mSocket, data, size, 0) >= 0; }
    bool receive(char* data, std::size_t size) override { return zmq_recv(mSocket, data, size, 0) >= 0; }

private:
    void* mContext;
    void* mSocket;
};

const RegisterExchange kRow(bytesRow("ZeroMQ", [](const std::string& path, bool server) {
    return std::make_unique<ZmqEnd>(path, server);
}));

}  // namespace

}  // namespace bench
