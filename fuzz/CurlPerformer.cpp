// The worker: headers and body as a server sends them, through the callbacks, up to the result card.

#include "transfer/CurlPerformer.h"

#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>

#include "mq/MqClientControllerBase.h"
#include "mq/MqMsgWrapper.h"
#include "postcard/InPostcard.h"
#include "support/Card.h"
#include "support/Input.h"
#include "support/StandInTransfer.h"
#include "transfer/WorkerCommand.h"

namespace {

using namespace zv_loc_fw;
using fuzz::StandInTransfer;
using test_support::Card;

/// Stands for the worker's controller, with its loop: takes the results.
class Results : public MqClientControllerBase {
public:
    Results() : MqClientControllerBase("results", "..", nullptr, nullptr) {
        FUZZ_CHECK(init() == 0);
        std::thread([this] { (void)run(); }).detach();
    }

    std::string take() {
        std::unique_lock lock(mMutex);
        mArrived.wait(lock, [this] { return mMessage != nullptr; });
        const std::unique_ptr<MqMsgWrapper> message = std::move(mMessage);
        const InMemoryStream* stream = message->card()->getBuffer();
        return {static_cast<const char*>(stream->getBuffer()), stream->getSize()};
    }

protected:
    int _init() override { return 0; }
    int _process(MqMsgWrapper* message) override {
        const std::lock_guard guard(mMutex);
        mMessage.reset(message);
        mArrived.notify_one();
        return 0;
    }
    int _shutdown() override { return 0; }

private:
    std::mutex mMutex;
    std::condition_variable mArrived;
    std::unique_ptr<MqMsgWrapper> mMessage;
};

/// For the whole process: its loop has no end.
Results& results() {
    static auto* const instance = new Results;
    return *instance;
}

std::unique_ptr<WorkerCommand> commandFor(const Card& request) {
    const std::string bytes = request.encode();
    auto* const copy = new char[bytes.size()];
    std::memcpy(copy, bytes.data(), bytes.size());
    std::unique_ptr<InPostcard> reader(InPostcard::createInstance());
    FUZZ_CHECK(reader->init(copy, bytes.size(), true) == 0);
    auto job = std::make_unique<MqMsgWrapper>(reader.release());
    auto command = std::make_unique<WorkerCommand>();
    command->kind = WorkerCommand::kPerform;
    command->job = std::move(job);
    return command;
}

Card expectedReply(const char* req, const StandInTransfer::Outcome& outcome) {
    Card reply;
    reply.string("FROM", "agent").string("TO", "client").int32("TX-ID", 7).string("RESP", req);
    if (outcome.code != CURLE_OK) {
        reply.boolean("CURL-TIMEOUT", outcome.code == CURLE_OPERATION_TIMEDOUT).string("CURL-ERROR", outcome.error);
    } else {
        if (!outcome.body.empty()) {
            reply.blob("HTTP-RESP-DATA", outcome.body);
        }
        reply.int32("HTTP-RESP-CODE", static_cast<int32_t>(outcome.status));
    }
    reply.int32("HTTP-RESP-DATA-SIZE", static_cast<int32_t>(outcome.body.size()));
    if (outcome.retryAfterSeen) {
        reply.int32("HTTP-RETRY-AFTER", outcome.retryAfterSeconds);
    }
    return reply;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    fuzz::quietLog(5);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::Input input(data, size);
    const bool post = (input.number<uint8_t>() & 1) != 0;
    StandInTransfer::setScript(std::string(input.rest()));
    const char* req = post ? "POST" : "GET";
    Card request;
    request.string("FROM", "client").string("TO", "agent").string("REQ", req).int32("TX-ID", 7);
    request.string("URL", "http://localhost/").int32("TIMEOUT-SEC", 1000);
    if (post) {
        request.blob("POST-DATA", "body");
    }

    CurlPerformer worker("worker", &results());
    std::unique_ptr<WorkerCommand> command = commandFor(request);
    FUZZ_CHECK(worker.commandQueue()->push(command.get()) == 0);
    (void)command.release();  // the worker's
    FUZZ_CHECK(worker.commandQueue()->close() == 0);
    FUZZ_CHECK(worker.run() == 0);  // until the queue is empty, on this thread

    const std::optional<Card> message = Card::decode(results().take());
    FUZZ_CHECK(message.has_value() && message->getString("REQ") == "HTTP-RESULT");
    const std::optional<Card> reply = message->getCard("RESULT");
    FUZZ_CHECK(reply.has_value());
    FUZZ_CHECK(reply->fields() == expectedReply(req, StandInTransfer::outcome()).fields());
    return 0;
}
