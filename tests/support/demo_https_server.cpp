// The server that script/demo talks to: HTTPS on a free port of the loopback address. It says "listening on PORT" and
// serves until SIGTERM, or for ten minutes if nobody sends one.

#include <httplib.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <string>
#include <thread>

namespace {

constexpr time_t kLongestRunSeconds = 600;

int usage() {
    std::fprintf(stderr, "usage: demo-https-server --cert FILE --key FILE\n");
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    std::string certificate;
    std::string key;
    for (int i = 1; i < argc; i += 2) {
        const std::string name = argv[i];
        if ((name != "--cert" && name != "--key") || i + 1 >= argc) {
            return usage();
        }
        (name == "--cert" ? certificate : key) = argv[i + 1];
    }
    if (certificate.empty() || key.empty()) {
        return usage();
    }
    // Blocked before any thread exists: only sigtimedwait below takes it.
    sigset_t ends;
    sigemptyset(&ends);
    sigaddset(&ends, SIGTERM);
    sigaddset(&ends, SIGINT);
    pthread_sigmask(SIG_BLOCK, &ends, nullptr);

    httplib::SSLServer server(certificate.c_str(), key.c_str());
    if (!server.is_valid()) {
        std::fprintf(stderr, "demo-https-server: cannot use %s with %s\n", certificate.c_str(), key.c_str());
        return 1;
    }
    server.set_keep_alive_timeout(1);  // a stop waits for idle connections
    server.Get("/", [](const httplib::Request&, httplib::Response& response) {
        response.set_content(
            "Good day from the demonstration's server.\n"
            "You reached it over HTTPS: the agent checked the certificate against the authority of this run.\n",
            "text/plain");
    });
    server.Post("/echo", [](const httplib::Request& request, httplib::Response& response) {
        const std::string type = request.get_header_value("Content-Type");
        response.set_content(request.body, type.empty() ? "application/octet-stream" : type);
    });
    const int port = server.bind_to_any_port("127.0.0.1");
    if (port <= 0) {
        std::fprintf(stderr, "demo-https-server: no free port on 127.0.0.1\n");
        return 1;
    }
    std::thread serving([&server] { server.listen_after_bind(); });
    while (!server.is_running()) {
        std::this_thread::yield();  // a stop before the loop has begun would be forgotten
    }
    std::printf("listening on %d\n", port);
    std::fflush(stdout);
    const timespec limit{kLongestRunSeconds, 0};
    while (sigtimedwait(&ends, nullptr, &limit) < 0 && errno == EINTR) {
    }
    server.stop();
    serving.join();
    return 0;
}
