// What an agent of this design cannot do without, and nothing else: a message in, a loop and a worker beside the
// receiver, a transfer, a message out. No envelope, no deadlines, no log.

#include <pthread.h>
#include <sched.h>
#include <unistd.h>

#include <array>
#include <deque>
#include <string>
#include <thread>
#include <utility>

#include "macro/datagram.h"
#include "macro/libcurl.h"
#include "macro/process.h"

namespace bench {

namespace {

struct Item {
    bool result = false;
    std::string bytes;
};

/// As the agent's queue: an error-checking mutex, and a push that wakes before it unlocks.
class Queue {
public:
    Queue() {
        pthread_mutexattr_t attributes;
        (void)pthread_mutexattr_init(&attributes);
        (void)pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_ERRORCHECK);
        (void)pthread_mutex_init(&mMutex, &attributes);
        (void)pthread_mutexattr_destroy(&attributes);
    }
    void push(Item item) {
        (void)pthread_mutex_lock(&mMutex);
        mItems.push_back(std::move(item));
        (void)pthread_cond_signal(&mCondition);
        (void)pthread_mutex_unlock(&mMutex);
    }
    Item pop() {
        (void)pthread_mutex_lock(&mMutex);
        while (mItems.empty()) {
            (void)pthread_cond_wait(&mCondition, &mMutex);
        }
        Item item = std::move(mItems.front());
        mItems.pop_front();
        (void)pthread_mutex_unlock(&mMutex);
        return item;
    }

private:
    pthread_mutex_t mMutex{};
    pthread_cond_t mCondition = PTHREAD_COND_INITIALIZER;
    std::deque<Item> mItems;
};

constexpr const char* kServiceRole = "bare-hand-overs";

void serve(const std::string& path, const std::string& caFile) {
    const sched_param no_priority{};
    (void)::sched_setscheduler(0, SCHED_BATCH, &no_priority);  // as the agent
    DatagramEnd end(path, true, true);
    Queue incoming;
    Queue jobs;
    const std::thread worker([&] {
        Libcurl curl;
        curl.trust(caFile);
        for (;;) {
            std::string body;
            curl.get(jobs.pop().bytes, &body);
            incoming.push({true, std::move(body)});
        }
    });
    const std::thread loop([&] {
        for (;;) {
            Item item = incoming.pop();
            if (item.result) {
                (void)end.send(item.bytes.data(), item.bytes.size());
            } else {
                jobs.push(std::move(item));
            }
        }
    });
    std::array<char, 65536> buffer{};
    for (;;) {
        if (const std::size_t size = end.take(buffer.data(), buffer.size()); size > 0) {
            incoming.push({false, std::string(buffer.data(), size)});
        }
    }
}

class BareHandOvers : public Getter {
public:
    explicit BareHandOvers(const Stage& stage)
        : mPath(stage.directory + "/bare"),
          mService(Process::as(kServiceRole, {mPath, stage.caFile})),
          mEnd(mPath, false, false) {
        if (!waitFor(&mService, [this] { return ::access(mPath.c_str(), F_OK) == 0; })) {
            die("the bare hand-overs do not come up");
        }
    }
    ~BareHandOvers() override {
        mService.stop();
        (void)::unlink(mPath.c_str());  // or the next would be taken for up already
    }
    BareHandOvers(const BareHandOvers&) = delete;
    BareHandOvers& operator=(const BareHandOvers&) = delete;

    std::size_t get(const std::string& url) override {
        const bool sent = mEnd.send(url.data(), url.size());
        const std::size_t size = sent ? mEnd.take(mBuffer.data(), mBuffer.size()) : 0;
        if (size == 0) {
            die("the bare hand-overs do not answer");
        }
        return size;
    }
    [[nodiscard]] std::vector<pid_t> servants() const override { return {mService.pid()}; }

private:
    std::string mPath;
    Process mService;
    DatagramEnd mEnd;
    std::array<char, 65536> mBuffer{};
};

const RegisterRole kRole(kServiceRole,
                         [](const std::vector<std::string>& arguments) { serve(arguments.at(0), arguments.at(1)); });

const RegisterExchange kRow(gettingRow("bare hand-overs", kSmall, [](const Stage& stage, std::string* /*why*/) {
    return std::make_unique<BareHandOvers>(stage);
}));

}  // namespace

}  // namespace bench
