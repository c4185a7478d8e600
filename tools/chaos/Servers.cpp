#include "Servers.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "support/DeviceFiles.h"

namespace chaos {

using test_support::RawConnection;
using test_support::RawServer;

namespace {

constexpr const char* kKept = "kept to the last byte";

/// One byte at a time; ends early with the client, or with the server's life.
void drip(RawConnection& connection, const std::string& bytes, int pauseMilliseconds) {
    for (const char byte : bytes) {
        if (!connection.sleep(pauseMilliseconds) || !connection.sendAll(std::string(1, byte))) {
            return;
        }
    }
}

/// True when the path was one of those that end badly at once.
bool endBadly(RawConnection& connection, const std::string& path) {
    const std::string head = "HTTP/1.1 200 OK\r\nContent-Length: 100\r\n";
    const std::string body = head + "\r\n0123456789";
    const auto answer = [&](const std::string& bytes) {
        connection.sendAll(bytes);
        return true;
    };
    const auto reset_after = [&](const std::string& bytes) {
        connection.sendAll(bytes);
        connection.reset();
        return true;
    };
    const auto redirect = [&](const std::string& to) {
        return answer(RawServer::response("302 Found", {"Location: " + to}, "over there"));
    };
    if (path == "/reset") {
        return reset_after("");
    }
    if (path == "/reset-head") {
        return reset_after(head);
    }
    if (path == "/reset-body") {
        return reset_after(body);
    }
    if (path == "/empty") {
        return true;
    }
    if (path == "/cut-head") {
        return answer("HTTP/1.1 2");
    }
    if (path == "/cut-body") {
        return answer(body);
    }
    if (path == "/endless-line") {
        return answer("HTTP/1.1 200 OK\r\nX-Long: " + std::string(400000, 'x'));
    }
    if (path == "/garbage-status") {
        return answer("ICY is nice\r\n\r\nand warm");
    }
    if (path == "/bad-length") {
        return answer("HTTP/1.1 200 OK\r\nContent-Length: many\r\nConnection: close\r\n\r\nmany bytes");
    }
    if (path == "/bad-chunk") {
        return answer("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nhello\r\nzzz\r\nno number\r\n");
    }
    if (path == "/loop") {
        return redirect("/loop");
    }
    if (path == "/to-file") {
        return redirect("file:///etc/hostname");
    }
    return path == "/to-ftp" && redirect("ftp://127.0.0.1/");
}

/// Each of them ends with the client, or with the server's life.
void takeForever(RawConnection& connection, const std::string& path) {
    if (path == "/stall-head") {
        connection.sendAll("HTTP/1.1 200 OK\r\nContent-Le");
    } else if (path == "/stall-body") {
        connection.sendAll("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n0123456789");
    } else if (path == "/drip-slow") {
        drip(connection, RawServer::response("200 OK", {}, std::string(4000, 'd')), 50);
    } else if (path == "/endless-head") {
        connection.sendAll("HTTP/1.1 200 OK\r\n");
        for (int line = 0; connection.sleep(2); ++line) {
            if (!connection.sendAll("X-" + std::to_string(line) + ": " + std::string(60, 'x') + "\r\n")) {
                return;
            }
        }
    }
    connection.stall();
}

void misbehave(RawConnection& connection) {
    const std::string request = connection.readRequest();
    const size_t at = request.find(' ');
    if (at == std::string::npos) {
        return;  // the client has left, or the server stops
    }
    const std::string path = request.substr(at + 1, request.find(' ', at + 1) - at - 1);
    if (path == "/drip") {
        drip(connection, RawServer::response("200 OK", {}, kKept), 1);
    } else if (path == "/short-length") {
        connection.sendAll("HTTP/1.1 200 OK\r\nConnection: close\r\nContent-Length: 4\r\n\r\n" + std::string(kKept));
    } else if (path == "/chunked") {
        connection.sendAll("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nkept \r\n10\r\n" +
                           std::string(kKept).substr(5) + "\r\n0\r\n\r\n");
    } else if (path == "/until-close") {
        connection.sendAll("HTTP/1.1 200 OK\r\nConnection: close\r\n\r\n" + std::string(kKept));
    } else if (!endBadly(connection, path)) {
        takeForever(connection, path);
    }
}

}  // namespace

Servers::Servers()
    : raw(&misbehave),
      resetting([](RawConnection& connection) { connection.reset(); }),
      blurting([](auto& connection) { connection.sendAll("\x15\x03 what? \r\n\r\n"); }) {
    test_support::device_files::writeCaFile(mAuthority.pem());
    test_support::device_files::writeDeviceCertificate(mAuthority.issueClient("the device"));
    // Bound, but not listening, for as long as the run lasts: nobody else gets the port meanwhile.
    mRefused = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof(address);
    auto* any = reinterpret_cast<sockaddr*>(&address);
    if (bind(mRefused, any, size) != 0 || getsockname(mRefused, any, &size) != 0) {
        std::perror("chaos: a port to refuse at");
        std::abort();
    }
    mRefusedPort = ntohs(address.sin_port);
}

Servers::~Servers() {
    ::close(mRefused);
}

std::string Servers::kept(const std::string& path) {
    return path == "/short-length" ? std::string(kKept).substr(0, 4) : kKept;
}

}  // namespace chaos
