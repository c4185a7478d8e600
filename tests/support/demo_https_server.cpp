// The server that script/demo talks to: HTTPS on a free port of the loopback address. It says "listening on PORT" and
// serves until SIGTERM, or for ten minutes if nobody sends one.

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <string>

#include "support/HttpServer.h"
#include "support/files.h"

int main(int argc, char** argv) {
    if (argc != 5 || argv[1] != std::string("--cert") || argv[3] != std::string("--key")) {
        std::fprintf(stderr, "usage: demo-https-server --cert FILE --key FILE\n");
        return 2;
    }
    // Blocked before any thread exists: only sigtimedwait below takes it.
    sigset_t ends;
    sigemptyset(&ends);
    sigaddset(&ends, SIGTERM);
    sigaddset(&ends, SIGINT);
    pthread_sigmask(SIG_BLOCK, &ends, nullptr);
    const test_support::HttpServer server(
        test_support::HttpServer::Tls{{test_support::readFile(argv[2]), test_support::readFile(argv[4])}});
    const std::string url = server.url("");
    std::printf("listening on %s\n", url.c_str() + url.rfind(':') + 1);
    std::fflush(stdout);
    const timespec limit{600, 0};
    while (sigtimedwait(&ends, nullptr, &limit) < 0 && errno == EINTR) {
    }
    return 0;
}
