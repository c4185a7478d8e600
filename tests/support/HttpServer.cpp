#include "support/HttpServer.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <httplib.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <thread>

#include "support/files.h"

#if defined(__SANITIZE_THREAD__)
#define TEST_SUPPORT_TSAN
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define TEST_SUPPORT_TSAN
#endif
#endif

#ifdef TEST_SUPPORT_TSAN
/// The server library is not built with the sanitizer, which therefore does not see how the library's own static tables
/// are handed from the thread that makes them to the others, and takes reading them for a race. Only accesses that the
/// library itself makes are left out; what it calls of ours is watched. Nor does it see that F_DUPFD makes a
/// descriptor, and takes closing that for closing one of the same number that another thread had before.
extern "C" const char* __tsan_default_suppressions();
extern "C" const char* __tsan_default_suppressions() {
    return "called_from_lib:libcpp-httplib.so\nrace:shutDownConnectionsOf\n";
}
#endif

namespace test_support {
namespace {

std::string lowerCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

std::string commonNameOf(const httplib::Request& request) {
    X509* certificate = request.ssl != nullptr ? SSL_get1_peer_certificate(request.ssl) : nullptr;
    char name[256] = "";
    if (certificate != nullptr) {
        X509_NAME_get_text_by_NID(X509_get_subject_name(certificate), NID_commonName, name, sizeof(name));
        X509_free(certificate);
    }
    return name;
}

/// Shuts down every connection of this process whose own end is the server's port. The server library keeps its
/// sockets to itself, so they are looked up; a duplicate is examined, because the number may change hands meanwhile.
void shutDownConnectionsOf(int port) {
    std::error_code ignored;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd", ignored)) {
        const int copy = fcntl(std::atoi(entry.path().filename().c_str()), F_DUPFD_CLOEXEC, 0);
        if (copy < 0) {
            continue;
        }
        sockaddr_in address{};
        socklen_t size = sizeof(address);
        if (getsockname(copy, reinterpret_cast<sockaddr*>(&address), &size) == 0 && address.sin_family == AF_INET &&
            ntohs(address.sin_port) == port) {
            shutdown(copy, SHUT_RDWR);
        }
        close(copy);
    }
}

}  // namespace

std::string SeenRequest::header(const std::string& lower_case_name) const {
    const auto found = headers.find(lower_case_name);
    return found == headers.end() ? "" : found->second;
}

struct HttpServer::Impl {
    std::unique_ptr<httplib::Server> server;
    std::string scheme = "http://";
    int port = 0;
    std::thread thread;

    mutable std::mutex mutex;
    std::condition_variable changed;
    std::vector<SeenRequest> seen;
    bool stopping = false;
    bool ended = false;

    void record(const httplib::Request& request) {
        SeenRequest entry{request.method, {}, request.body, request.remote_port, commonNameOf(request)};
        for (const auto& [name, value] : request.headers) {
            entry.headers.emplace(lowerCase(name), value);
        }
        const std::lock_guard guard(mutex);
        seen.push_back(std::move(entry));
    }

    void addRoutes();
    void start();
};

void HttpServer::Impl::addRoutes() {
    using httplib::Request;
    using httplib::Response;
    // A handler is called once the body has been read, so a request is recorded exactly once.
    const auto route = [this](const std::string& pattern, auto handler) {
        const auto recorded = [this, handler](const Request& request, Response& response) {
            record(request);
            handler(request, response);
        };
        server->Get(pattern, recorded).Post(pattern, recorded);
    };
    route("/", [](const Request&, Response& response) {
        response.set_content("Good day from a server of this machine.\n", "text/plain");
    });
    route("/hello", [](const Request&, Response& response) { response.set_content("hello\n", "text/plain"); });
    route("/echo", [](const Request& request, Response& response) {
        const std::string type = request.get_header_value("Content-Type");
        response.set_content(request.body, type.empty() ? "application/octet-stream" : type);
    });
    route("/status/(\\d+)", [](const Request& request, Response& response) {
        response.status = std::stoi(request.matches[1]);
        if (response.status != 204) {
            response.set_content("status " + request.matches[1].str() + "\n", "text/plain");
        }
    });
    route("/bytes/(\\d+)", [](const Request& request, Response& response) {
        std::string text(std::stoul(request.matches[1]), '\0');
        for (size_t i = 0; i < text.size(); ++i) {
            text[i] = static_cast<char>('a' + i % 26);
        }
        response.set_content(text, "application/octet-stream");
    });
    route("/redirect", [](const Request& request, Response& response) {
        const std::string code = request.get_param_value("code");
        response.set_redirect(request.get_param_value("to"), code.empty() ? 302 : std::stoi(code));
    });
    route("/slow", [this](const Request& request, Response& response) {
        const std::chrono::milliseconds delay(std::stoi(request.get_param_value("ms")));
        std::unique_lock lock(mutex);
        changed.wait_for(lock, delay, [&] { return stopping; });
        response.set_content("slow\n", "text/plain");
    });
    route("/retry-after", [](const Request& request, Response& response) {
        response.status = 503;
        response.set_header("Retry-After", request.get_param_value("value"));
        response.set_content("later\n", "text/plain");
    });
}

void HttpServer::Impl::start() {
    // Enough threads for clients that keep idle connections: each holds one.
    server->new_task_queue = [] { return new httplib::ThreadPool(32); };  // owned by the server
    server->set_keep_alive_max_count(1000);
    server->set_keep_alive_timeout(60);
    server->set_payload_max_length(512U * 1024 * 1024);
    server->set_tcp_nodelay(true);
    addRoutes();
    port = server->bind_to_any_port("127.0.0.1");
    if (!server->is_valid() || port <= 0) {
        std::fprintf(stderr, "test server: a bad certificate, or no port on 127.0.0.1\n");
        std::abort();
    }
    thread = std::thread([this] {
        server->listen_after_bind();
        const std::lock_guard guard(mutex);
        ended = true;
        changed.notify_all();
    });
    // stop() before the loop has begun would be forgotten.
    while (!server->is_running()) {
        std::this_thread::yield();
    }
}

HttpServer::HttpServer() : mImpl(std::make_unique<Impl>()) {
    mImpl->server = std::make_unique<httplib::Server>();
    mImpl->start();
}

HttpServer::HttpServer(const Tls& tls) : mImpl(std::make_unique<Impl>()) {
    // The library takes files only, and reads them here.
    const TempDir directory;
    const std::string certificate = directory.write("server.pem", tls.certificate.certificatePem);
    const std::string key = directory.write("server.key", tls.certificate.keyPem);
    const std::string authority = directory.write("clients.pem", tls.clientAuthority);
    mImpl->scheme = "https://";
    auto server = std::make_unique<httplib::SSLServer>(certificate.c_str(), key.c_str(),
                                                       tls.clientAuthority.empty() ? nullptr : authority.c_str());
    // Without a name for its sessions, a server that wants certificates breaks off the handshake of whoever resumes one.
    constexpr unsigned char kSessions[] = {'t', 'e', 's', 't'};
    if (server->is_valid()) {
        SSL_CTX_set_session_id_context(server->ssl_context(), kSessions, sizeof(kSessions));
    }
    mImpl->server = std::move(server);
    mImpl->start();
}

HttpServer::~HttpServer() {
    mImpl->server->stop();
    {
        std::unique_lock lock(mImpl->mutex);
        mImpl->stopping = true;
        mImpl->changed.notify_all();
        // The listening thread joins the workers, and a worker may wait a long time for its client: cut it short. More
        // than once, because a connection may just be on its way from accept.
        while (!mImpl->changed.wait_for(lock, std::chrono::milliseconds(20), [&] { return mImpl->ended; })) {
            shutDownConnectionsOf(mImpl->port);
        }
    }
    mImpl->thread.join();
}

std::string HttpServer::url(const std::string& path, const std::string& host) const {
    return mImpl->scheme + host + ":" + std::to_string(mImpl->port) + path;
}

std::vector<SeenRequest> HttpServer::requests() const {
    const std::lock_guard guard(mImpl->mutex);
    return mImpl->seen;
}

bool HttpServer::waitForRequests(size_t count) const {
    for (int wait = 0; wait < 3000 && requestCount() < count; ++wait) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return requestCount() >= count;
}

}  // namespace test_support
