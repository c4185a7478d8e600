// Requests through the agent beside the same ones by libcurl in this process: small ones for the cost of a request, one
// of 64 MiB for the cost of a body. Client, agent and server share one processor, because placement alone would move
// the figures; rounds are interleaved, and ratios are taken round by round.
//
//   exchange_bench AGENT [--rounds N] [--requests N] [--mib N] [--spread]

#include <curl/curl.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sched.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "inet/AgentProtocol.h"
#include "mq/Envelope.h"
#include "postcard/CardBuilder.h"
#include "postcard/InPostcard.h"

namespace {

using namespace zv_loc_fw;
using Clock = std::chrono::steady_clock;

[[noreturn]] void die(const char* what) {
    std::perror(what);
    std::exit(1);
}

// The server, in a process of its own.

void answer(int connection, const std::string& large) {
    const std::string body(200, 's');
    const std::string small = "HTTP/1.1 200 OK\r\nContent-Length: 200\r\n\r\n" + body;
    const std::string large_head = "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(large.size()) + "\r\n\r\n";
    std::string request;
    char buffer[4096];
    for (;;) {
        const ssize_t got = ::recv(connection, buffer, sizeof(buffer), 0);
        if (got <= 0) {
            ::close(connection);
            return;
        }
        request.append(buffer, static_cast<size_t>(got));
        if (request.find("\r\n\r\n") == std::string::npos) {
            continue;
        }
        const auto sendAll = [&](const std::string& bytes) {
            for (size_t done = 0; done < bytes.size();) {
                const ssize_t sent = ::send(connection, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
                if (sent <= 0) {
                    return;
                }
                done += static_cast<size_t>(sent);
            }
        };
        if (request.compare(0, 10, "GET /large") == 0) {
            sendAll(large_head);
            sendAll(large);
        } else {
            sendAll(small);
        }
        request.clear();
    }
}

[[noreturn]] void serve(int listener, size_t mib) {
    const std::string large(mib << 20, 'l');
    for (;;) {
        const int connection = ::accept(listener, nullptr, nullptr);
        if (connection < 0) {
            std::_Exit(1);
        }
        const int one = 1;
        ::setsockopt(connection, IPPROTO_TCP, TCP_NODELAY, &one, sizeof(one));
        std::thread(answer, connection, std::cref(large)).detach();
    }
}

// The two ways.

size_t grow(char* data, size_t size, size_t count, void* body) {
    static_cast<std::string*>(body)->append(data, size * count);
    return size * count;
}

class InProcess {
public:
    InProcess() : mHandle(curl_easy_init()) {
        curl_easy_setopt(mHandle, CURLOPT_NOSIGNAL, 1L);
        curl_easy_setopt(mHandle, CURLOPT_WRITEFUNCTION, &grow);
    }
    ~InProcess() { curl_easy_cleanup(mHandle); }
    size_t get(const std::string& url) {
        std::string body;
        curl_easy_setopt(mHandle, CURLOPT_WRITEDATA, &body);
        curl_easy_setopt(mHandle, CURLOPT_URL, url.c_str());
        if (curl_easy_perform(mHandle) != CURLE_OK) {
            die("curl");
        }
        return body.size();
    }

private:
    CURL* mHandle;
};

sockaddr_un addressOf(const std::string& name) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::snprintf(address.sun_path, sizeof(address.sun_path), "%s%s", envelope::kSocketDirectory, name.c_str());
    return address;
}

class ThroughAgent {
public:
    ThroughAgent() : mSocket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)), mBuffer(new char[65536]) {
        const sockaddr_un own = addressOf("bench");
        ::unlink(own.sun_path);
        if (::bind(mSocket, reinterpret_cast<const sockaddr*>(&own), sizeof(own)) != 0) {
            die("bind");
        }
    }
    ~ThroughAgent() {
        ::unlink(addressOf("bench").sun_path);
        ::close(mSocket);
    }

    /// @param timeout_sec 0: the controller answers without a transfer
    size_t get(const std::string& url, int timeout_sec = 60) {
        CardBuilder card(1, 1);
        card.addString(1, envelope::kTo, agent_protocol::kCsController);
        card.addString(1, envelope::kFrom, "bench");
        card.addString(1, envelope::kReq, agent_protocol::kGet);
        card.addInt32(1, envelope::kTxId, ++mTxId);
        card.addString(1, agent_protocol::kUrl, url.c_str());
        card.addInt32(1, agent_protocol::kTimeoutSec, timeout_sec);
        card.finalize(1);
        const MemoryStreamBase* bytes = card.card()->getEncodedBuffer();
        if (::sendto(mSocket, bytes->getBuffer(), bytes->getSize(), 0, reinterpret_cast<const sockaddr*>(&mAgent),
                     sizeof(mAgent)) < 0) {
            die("sendto");
        }
        return receive();
    }

private:
    size_t receive() {
        for (;;) {
            iovec part{mBuffer.get(), 65536};
            alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))];
            msghdr message{};
            message.msg_iov = &part;
            message.msg_iovlen = 1;
            message.msg_control = control;
            message.msg_controllen = sizeof(control);
            const ssize_t length = ::recvmsg(mSocket, &message, MSG_CMSG_CLOEXEC);
            if (length < 0) {
                die("recvmsg");
            }
            const cmsghdr* header = CMSG_FIRSTHDR(&message);
            if (header == nullptr) {
                size_t body = 0;
                if (parse(mBuffer.get(), static_cast<size_t>(length), &body)) {
                    return body;
                }
                continue;
            }
            int fd = -1;
            std::memcpy(&fd, CMSG_DATA(header), sizeof(fd));
            struct stat status {};
            ::fstat(fd, &status);
            const auto size = static_cast<size_t>(status.st_size);
            void* const data = ::mmap(nullptr, size, PROT_READ, MAP_PRIVATE | MAP_POPULATE, fd, 0);
            size_t body = 0;
            const bool mine = parse(data, size, &body);
            ::munmap(data, size);
            ::close(fd);
            if (mine) {
                return body;
            }
        }
    }
    /// The body ends in this process's memory, as in the other way.
    bool parse(const void* data, size_t size, size_t* body) {
        const std::unique_ptr<InPostcard> card(InPostcard::createInstance());
        int32_t tx_id = 0;
        if (card->init(data, size, false) != 0 || card->getInt32(envelope::kTxId, tx_id) != 0 || tx_id != mTxId) {
            return false;
        }
        const void* bytes = nullptr;
        *body = 0;
        if (card->getBlob(agent_protocol::kHttpRespData, &bytes, body) == 0) {
            mBody.assign(static_cast<const char*>(bytes), *body);
            std::string().swap(mBody);
        }
        return true;
    }

    int mSocket;
    std::unique_ptr<char[]> mBuffer;
    sockaddr_un mAgent = addressOf(agent_protocol::kCsController);
    int32_t mTxId = 0;
    std::string mBody;
};

double microseconds(Clock::duration span) {
    return std::chrono::duration<double, std::micro>(span).count();
}

std::vector<double> timed(int times, const std::function<void()>& work) {
    std::vector<double> spans;
    for (int i = 0; i < times; ++i) {
        const auto begin = Clock::now();
        work();
        spans.push_back(microseconds(Clock::now() - begin));
    }
    return spans;
}

double quantile(std::vector<double> values, double q) {
    std::sort(values.begin(), values.end());
    return values[std::min(values.size() - 1, static_cast<size_t>(q * static_cast<double>(values.size())))];
}

double cpuMicroseconds(pid_t pid) {
    clockid_t clock{};
    timespec now{};
    if (clock_getcpuclockid(pid, &clock) != 0 || clock_gettime(clock, &now) != 0) {
        return 0;
    }
    return static_cast<double>(now.tv_sec) * 1e6 + static_cast<double>(now.tv_nsec) / 1e3;
}

std::string statusLine(pid_t pid, const std::string& key) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(file, line);) {
        if (line.compare(0, key.size(), key) == 0) {
            return line;
        }
    }
    return {};
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: exchange_bench AGENT [--rounds N] [--requests N] [--mib N] [--spread]\n");
        return 2;
    }
    int rounds = 7;
    int requests = 2000;
    size_t mib = 64;
    bool spread = false;
    for (int i = 2; i < argc; ++i) {
        const std::string option = argv[i];
        if (option == "--spread") {
            spread = true;
        } else if (i + 1 < argc) {
            const int value = std::atoi(argv[++i]);
            (option == "--rounds" ? rounds : option == "--requests" ? requests : rounds) = value;
            if (option == "--mib") {
                mib = static_cast<size_t>(value);
            }
        }
    }
    if (!spread) {
        cpu_set_t one;
        CPU_ZERO(&one);
        CPU_SET(0, &one);
        ::sched_setaffinity(0, sizeof(one), &one);
    }
    const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof(address);
    if (::bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0 || ::listen(listener, 8) != 0 ||
        ::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        die("listen");
    }
    const pid_t server = ::fork();
    if (server == 0) {
        serve(listener, mib);
    }
    const pid_t agent = ::fork();
    if (agent == 0) {
        (void)std::freopen("/dev/null", "w", stderr);
        ::execl(argv[1], argv[1], nullptr);
        std::_Exit(127);
    }
    const std::string base = "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port));
    for (int i = 0; i < 500 && ::access(addressOf(agent_protocol::kTdpDlController).sun_path, F_OK) != 0; ++i) {
        ::usleep(10000);
    }
    ::usleep(200000);

    curl_global_init(CURL_GLOBAL_ALL);
    InProcess in_process;
    ThroughAgent through_agent;
    const std::string small = base + "/small";
    const std::string large = base + "/large";
    const auto direct_small = [&] { in_process.get(small); };
    const auto agent_small = [&] { through_agent.get(small); };
    const auto agent_reply = [&] { through_agent.get(small, 0); };
    timed(200, direct_small);
    timed(200, agent_small);
    std::printf("idle: %s, %s\n", statusLine(agent, "RssAnon").c_str(), statusLine(agent, "VmRSS").c_str());

    std::vector<double> limit50, agent50, limit99, agent99, reply50, ratio50, ratio99, cpu;
    for (int round = 0; round < rounds; ++round) {
        const auto limit = timed(requests, direct_small);
        const double before = cpuMicroseconds(agent);
        const auto mine = timed(requests, agent_small);
        cpu.push_back((cpuMicroseconds(agent) - before) / requests);
        const auto reply = timed(requests, agent_reply);
        limit50.push_back(quantile(limit, 0.5));
        limit99.push_back(quantile(limit, 0.99));
        agent50.push_back(quantile(mine, 0.5));
        agent99.push_back(quantile(mine, 0.99));
        reply50.push_back(quantile(reply, 0.5));
        ratio50.push_back(agent50.back() / limit50.back());
        ratio99.push_back(agent99.back() / limit99.back());
    }
    std::printf(
        "small GET: limit p50 %.1f us p99 %.1f; agent p50 %.1f p99 %.1f; ratio p50 %.2f p99 %.2f; cpu %.1f us = %.2f "
        "limit; reply without transfer %.1f us\n",
        quantile(limit50, 0.5), quantile(limit99, 0.5), quantile(agent50, 0.5), quantile(agent99, 0.5),
        quantile(ratio50, 0.5), quantile(ratio99, 0.5), quantile(cpu, 0.5), quantile(cpu, 0.5) / quantile(limit50, 0.5),
        quantile(reply50, 0.5));
    std::printf("after load: %s, %s\n", statusLine(agent, "RssAnon").c_str(), statusLine(agent, "VmRSS").c_str());

    std::vector<double> limit_large, agent_large, ratio_large;
    for (int round = 0; round < rounds; ++round) {
        limit_large.push_back(quantile(timed(3, [&] { in_process.get(large); }), 0.5));
        agent_large.push_back(quantile(timed(3, [&] { through_agent.get(large); }), 0.5));
        ratio_large.push_back(agent_large.back() / limit_large.back());
    }
    std::printf("%zu MiB: limit %.1f ms, agent %.1f ms, ratio %.2f; %s\n", mib, quantile(limit_large, 0.5) / 1e3,
                quantile(agent_large, 0.5) / 1e3, quantile(ratio_large, 0.5), statusLine(agent, "VmHWM").c_str());
    ::sleep(8);
    std::printf("at rest: %s, %s\n", statusLine(agent, "RssAnon").c_str(), statusLine(agent, "VmRSS").c_str());
    ::kill(agent, SIGTERM);
    ::kill(server, SIGTERM);
    ::waitpid(agent, nullptr, 0);
    ::waitpid(server, nullptr, 0);
    return 0;
}
