#include "macro/origin.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/ssl.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <thread>

namespace bench {

namespace {

constexpr std::size_t kPiece = std::size_t{1} << 20;

/// One connection, plain or encrypted.
class Connection {
public:
    Connection(int socket, SSL_CTX* tls) : mSocket(socket) {
        const int one = 1;
        (void)::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &one, sizeof(one));
        if (tls != nullptr) {
            mTls.reset(SSL_new(tls));
            SSL_set_fd(mTls.get(), socket);
            mOpen = SSL_accept(mTls.get()) == 1;
        }
    }
    ~Connection() {
        if (mTls != nullptr) {
            (void)SSL_shutdown(mTls.get());
        }
        (void)::close(mSocket);
    }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    [[nodiscard]] bool open() const { return mOpen; }
    /// @return 0 or less at the end
    long read(char* buffer, int size) {
        return mTls != nullptr ? SSL_read(mTls.get(), buffer, size)
                               : ::recv(mSocket, buffer, static_cast<std::size_t>(size), 0);
    }
    void write(std::string_view bytes) {
        while (mOpen && !bytes.empty()) {
            const std::size_t size = std::min(bytes.size(), kPiece);
            const long sent = mTls != nullptr ? SSL_write(mTls.get(), bytes.data(), static_cast<int>(size))
                                              : ::send(mSocket, bytes.data(), size, MSG_NOSIGNAL);
            mOpen = sent > 0;
            bytes.remove_prefix(mOpen ? static_cast<std::size_t>(sent) : 0);
        }
    }

private:
    struct TlsCloser {
        void operator()(SSL* tls) const { SSL_free(tls); }
    };

    int mSocket;
    bool mOpen = true;
    std::unique_ptr<SSL, TlsCloser> mTls;
};

/// Answers one request whose head is complete.
void answer(Connection* connection, std::string_view request, int release) {
    constexpr std::string_view kBytes = "GET /bytes/";
    constexpr std::string_view kHeld = "GET /held";
    static const std::string piece(kPiece, 'x');

    std::size_t size = 200;
    if (request.substr(0, kBytes.size()) == kBytes) {
        size = std::strtoul(request.data() + kBytes.size(), nullptr, 10);
    } else if (request.substr(0, kHeld.size()) == kHeld) {
        std::uint64_t one = 0;
        (void)!::read(release, &one, sizeof(one));
    }
    std::string head = "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(size) + "\r\n\r\n";
    if (size <= 4096) {
        connection->write(head.append(size, 'x'));
        return;
    }
    connection->write(head);
    for (; size > 0 && connection->open(); size -= std::min(size, kPiece)) {
        connection->write(std::string_view(piece).substr(0, size));
    }
}

void converse(int socket, SSL_CTX* tls, int release) {
    Connection connection(socket, tls);
    std::string request;
    char buffer[8192];
    while (connection.open()) {
        const long got = connection.read(buffer, sizeof(buffer));
        if (got <= 0) {
            return;
        }
        request.append(buffer, static_cast<std::size_t>(got));
        if (request.find("\r\n\r\n") != std::string::npos) {
            answer(&connection, request, release);
            request.clear();
        }
    }
}

void acceptAll(int listener, SSL_CTX* tls, int release) {
    for (;;) {
        const int socket = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (socket < 0) {
            std::_Exit(1);
        }
        std::thread(converse, socket, tls, release).detach();
    }
}

int listenOn(int* port) {
    const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof(address);
    if (::bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0 ||
        ::listen(listener, SOMAXCONN) != 0 ||
        ::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        die("the origin cannot listen");
    }
    *port = ntohs(address.sin_port);
    return listener;
}

/// The context lives as long as the process.
SSL_CTX* makeContext(const std::string& certificateFile, const std::string& keyFile) {
    SSL_CTX* const context = SSL_CTX_new(TLS_server_method());
    if (SSL_CTX_use_certificate_file(context, certificateFile.c_str(), SSL_FILETYPE_PEM) != 1 ||
        SSL_CTX_use_PrivateKey_file(context, keyFile.c_str(), SSL_FILETYPE_PEM) != 1) {
        die("the origin's certificate is of no use");
    }
    return context;
}

constexpr const char* kRole = "origin";

/// @param arguments descriptors: listening for HTTP, for HTTPS, that of release(); the certificate's and the key's file
const RegisterRole kOriginRole(kRole, [](const std::vector<std::string>& arguments) {
    (void)::signal(SIGPIPE, SIG_IGN);
    const int release = std::stoi(arguments.at(2));
    std::thread(acceptAll, std::stoi(arguments.at(0)), nullptr, release).detach();
    acceptAll(std::stoi(arguments.at(1)), makeContext(arguments.at(3), arguments.at(4)), release);
});

}  // namespace

Origin::Origin(const std::string& certificateFile, const std::string& keyFile)
    : mRelease(::eventfd(0, EFD_CLOEXEC | EFD_SEMAPHORE)) {
    const std::array<int, 3> inherited = {listenOn(&mHttpPort), listenOn(&mHttpsPort), mRelease};
    mProcess = Process::as(kRole,
                           {std::to_string(inherited[0]), std::to_string(inherited[1]), std::to_string(inherited[2]),
                            certificateFile, keyFile},
                           [&] {
                               for (const int descriptor : inherited) {
                                   (void)::fcntl(descriptor, F_SETFD, 0);
                               }
                           });
    (void)::close(inherited[0]);
    (void)::close(inherited[1]);
}

Origin::~Origin() {
    (void)::close(mRelease);
}

std::string Origin::http(const std::string& path) const {
    return "http://127.0.0.1:" + std::to_string(mHttpPort) + path;
}

std::string Origin::https(const std::string& path) const {
    return "https://127.0.0.1:" + std::to_string(mHttpsPort) + path;
}

void Origin::release() {
    const std::uint64_t one = 1;
    (void)!::write(mRelease, &one, sizeof(one));
}

}  // namespace bench
