// A program that happens to contain a message-queue framework with the names of the one inside the library, and other
// contents. Exit status 0 when the agent has answered and nobody got the other's functions.
#include <inet_agent_client.h>

#include <cstdio>
#include <cstdlib>
#include <thread>

namespace zv_loc_fw {

struct OutPostcard {
    static OutPostcard* createInstance();
    virtual int init();
    virtual ~OutPostcard() = default;
};
OutPostcard* OutPostcard::createInstance() {
    std::abort();
}
int OutPostcard::init() {
    std::abort();
}

struct Participant {
    void stop();
};
void Participant::stop() {
    std::abort();
}

void log_error(const char*, const char*, ...) {
    std::abort();
}
int lookUpParticipant(const std::string&) {
    std::abort();
}

}  // namespace zv_loc_fw

int get_tag_log_level(const char*) {
    std::abort();
}

int main() {
    inet_agent::OpenResult opened = inet_agent::Client::open("stranger");
    if (!opened.client) {
        std::fprintf(stderr, "%s\n", opened.error.c_str());
        return 1;
    }
    inet_agent::Request request;
    request.url = "ftp://127.0.0.1/";  // refused by the agent at once, without any network
    inet_agent::Reply reply;
    for (int i = 0; i < 3000; ++i) {
        reply = opened.client->call(request);
        const bool starting = reply.kind == inet_agent::ReplyKind::noSuchParticipant ||
                              reply.kind == inet_agent::ReplyKind::staleSocket ||
                              reply.kind == inet_agent::ReplyKind::errorReply;
        if (!starting) {
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    if (reply.kind != inet_agent::ReplyKind::transferFailed) {
        std::fprintf(stderr, "%s: %s\n", inet_agent::toText(reply.kind), reply.text.c_str());
        return 1;
    }
    return 0;
}
