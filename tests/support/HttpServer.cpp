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

constexpr auto kPatience = std::chrono::seconds(30);

constexpr unsigned char kSessions[] = {'t', 'e', 's', 't'};

int numberOf(const std::string& text, int otherwise) {
    return text.empty() ? otherwise : std::atoi(text.c_str());
}

std::string lowerCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

std::string commonNameOf(const httplib::Request& request) {
    std::string name;
    if (request.ssl != nullptr) {
        if (X509* certificate = SSL_get1_peer_certificate(request.ssl)) {
            char text[256] = "";
            X509_NAME_get_text_by_NID(X509_get_subject_name(certificate), NID_commonName, text, sizeof(text));
            name = text;
            X509_free(certificate);
        }
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

std::string alphabet(size_t size) {
    std::string text(size, '\0');
    for (size_t i = 0; i < size; ++i) {
        text[i] = static_cast<char>('a' + i % 26);
    }
    return text;
}

}  // namespace

std::string SeenRequest::header(const std::string& name) const {
    const auto found = headers.find(lowerCase(name));
    return found == headers.end() ? "" : found->second;
}

struct HttpServer::Impl {
    TempDir directory;  // for the certificates: the server takes files only
    std::unique_ptr<httplib::Server> server;
    bool tls = false;
    int port = 0;
    std::thread thread;

    mutable std::mutex mutex;
    mutable std::condition_variable changed;
    std::vector<SeenRequest> seen;
    bool stopping = false;
    bool ended = false;

    void record(const httplib::Request& request) {
        SeenRequest entry{request.method, request.target, {}, request.body, request.remote_port, commonNameOf(request)};
        for (const auto& [name, value] : request.headers) {
            entry.headers.emplace(lowerCase(name), value);
        }
        const std::lock_guard guard(mutex);
        seen.push_back(std::move(entry));
        changed.notify_all();
    }

    bool sleepUnlessStopped(int milliseconds) const {
        std::unique_lock lock(mutex);
        return !changed.wait_for(lock, std::chrono::milliseconds(milliseconds), [&] { return stopping; });
    }

    void addRoutes();
    void start();
};

void HttpServer::Impl::addRoutes() {
    using httplib::Request;
    using httplib::Response;
    // Every road into a handler passes here once the body has been read, so a request is recorded exactly once.
    const auto recorded = [this](auto handler) {
        return [this, handler](const Request& request, Response& response) {
            record(request);
            handler(request, response);
        };
    };
    const auto any_method = [this](const std::string& pattern, const httplib::Server::Handler& handler) {
        server->Get(pattern, handler).Post(pattern, handler).Put(pattern, handler).Delete(pattern, handler);
    };
    server->Get("/hello", recorded([](const Request&, Response& r) { r.set_content("hello\n", "text/plain"); }));
    server->Post("/echo", recorded([](const Request& request, Response& response) {
                     const std::string type = request.get_header_value("Content-Type");
                     response.set_content(request.body, type.empty() ? "application/octet-stream" : type);
                 }));
    any_method("/status/(\\d+)", recorded([](const Request& request, Response& response) {
                   response.status = numberOf(request.matches[1].str(), 200);
                   if (response.status != 204 && response.status != 304) {
                       response.set_content("status " + request.matches[1].str() + "\n", "text/plain");
                   }
               }));
    server->Get("/bytes/(\\d+)", recorded([](const Request& request, Response& response) {
                    const auto size = static_cast<size_t>(std::strtoull(request.matches[1].str().c_str(), nullptr, 10));
                    response.set_content(alphabet(size), "application/octet-stream");
                }));
    server->Get("/redirect", recorded([](const Request& request, Response& response) {
                    response.set_redirect(request.get_param_value("to"),
                                          numberOf(request.get_param_value("code"), 302));
                }));
    server->Get("/slow", recorded([this](const Request& request, Response& response) {
                    sleepUnlessStopped(numberOf(request.get_param_value("ms"), 1000));
                    response.set_content("slow\n", "text/plain");
                }));
    any_method("/retry-after", recorded([](const Request& request, Response& response) {
                   response.status = numberOf(request.get_param_value("code"), 503);
                   response.set_header("Retry-After", request.get_param_value("value"));
                   response.set_content("later\n", "text/plain");
               }));
    // What no route takes is worth seeing too.
    any_method(".*", recorded([](const Request&, Response& response) { response.status = 404; }));
}

void HttpServer::Impl::start() {
    if (!server->is_valid()) {
        std::fprintf(stderr, "test server: the certificate was not accepted\n");
        std::abort();
    }
    // Enough threads for clients that keep idle connections: each holds one.
    server->new_task_queue = [] { return new httplib::ThreadPool(32); };  // owned by the server
    server->set_keep_alive_max_count(1000);
    server->set_keep_alive_timeout(60);
    server->set_payload_max_length(512U * 1024 * 1024);
    server->set_tcp_nodelay(true);
    addRoutes();
    port = server->bind_to_any_port("127.0.0.1");
    if (port <= 0) {
        std::fprintf(stderr, "test server: no port on 127.0.0.1\n");
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
    const Certificate::Files files = tls.certificate.writeTo(mImpl->directory.path(), "server");
    std::string authority;
    if (!tls.clientAuthority.empty()) {
        authority = mImpl->directory.file("clients.pem");
        writeFile(authority, tls.clientAuthority);
    }
    mImpl->tls = true;
    auto server = std::make_unique<httplib::SSLServer>(files.certificate.c_str(), files.key.c_str(),
                                                       authority.empty() ? nullptr : authority.c_str());
    // Without a name for its sessions, a server that wants certificates breaks off the handshake of whoever resumes one.
    if (server->is_valid() &&
        SSL_CTX_set_session_id_context(server->ssl_context(), kSessions, sizeof(kSessions)) != 1) {
        std::fprintf(stderr, "test server: no name for its sessions\n");
        std::abort();
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

int HttpServer::port() const {
    return mImpl->port;
}

std::string HttpServer::url(const std::string& path, const std::string& host) const {
    return (mImpl->tls ? "https://" : "http://") + host + ":" + std::to_string(mImpl->port) + path;
}

std::vector<SeenRequest> HttpServer::requests() const {
    const std::lock_guard guard(mImpl->mutex);
    return mImpl->seen;
}

size_t HttpServer::requestCount() const {
    const std::lock_guard guard(mImpl->mutex);
    return mImpl->seen.size();
}

bool HttpServer::waitForRequests(size_t count) const {
    std::unique_lock lock(mImpl->mutex);
    return mImpl->changed.wait_for(lock, kPatience, [&] { return mImpl->seen.size() >= count; });
}

bool HttpServer::sleepUnlessStopped(int milliseconds) const {
    return mImpl->sleepUnlessStopped(milliseconds);
}

}  // namespace test_support
