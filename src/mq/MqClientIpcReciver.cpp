#include "mq/MqClientIpcReciver.h"

#include <cstdint>
#include <cstring>
#include <memory>
#include <new>

#include "base/BlockingQueue.h"
#include "base/log.h"
#include "mq/Envelope.h"
#include "mq/MessageQueueClientImpl.h"
#include "mq/MqMsgWrapper.h"
#include "platform/HeapPages.h"
#include "postcard/CardBuilder.h"
#include "postcard/InPostcard.h"
#include "postcard/OutPostcard.h"

namespace zv_loc_fw {

namespace {

/// What refused messages may leave behind in the heap.
constexpr size_t kMostRefusedBytes = size_t{2} << 20;

/// One of these makes a message; looked for in this order, and only the first that is there is logged.
constexpr const char* kKinds[] = {envelope::kReq, envelope::kResp, envelope::kInfo};

/// @return 0; 5 a field of that name has another type
int readTxId(InPostcard& card, int32_t* tx_id) {
    *tx_id = envelope::kNoTxId;
    const int result = card.getInt32(envelope::kTxId, *tx_id);
    if (result == 0) {
        return 0;
    }
    return result == kFieldAbsent && !InPostcard::hasField(card, envelope::kTxId) ? 0 : 5;
}

}  // namespace

MqClientIpcReciver::MqClientIpcReciver(const char* controller_name, BlockingQueue* queue,
                                       MessageQueueClientImpl* client, const char* ipc_name)
    : mQueue(queue), mClient(client) {
    const int result = registerName(controller_name, ipc_name);
    if (result != 0) {
        log_error(mName, "MqClientIpcReciver constructor failed %d", result);
    }
}

int MqClientIpcReciver::registerName(const char* controller_name, const char* ipc_name) {
    if (controller_name == nullptr) {
        return 3;  // leaves the log tag unset
    }
    mName = "MqClientIpcReciver";
    if (mClient == nullptr) {
        return 4;
    }
    CardBuilder builder(5, 6);
    builder.addString(7, envelope::kTo, envelope::kHub);
    builder.addString(8, envelope::kFrom, ipc_name);
    builder.addString(9, envelope::kReq, envelope::kRegister);
    builder.finalize(10);
    if (builder.result() != 0) {
        return builder.result();
    }
    return mClient->send(builder.card()->getEncodedBuffer()) == 0 ? 0 : 11;
}

int MqClientIpcReciver::newMsg(InMemoryStream* stream) {
    const size_t size = stream != nullptr ? stream->getCapacity() : 0;
    InPostcard* raw_card = nullptr;
    bool kill = false;
    const int result = readMessage(stream, &raw_card, &kill);
    std::unique_ptr<InPostcard> card(raw_card);
    if (result != 0) {
        log_error(mName, "newMsg error %d", result);
        card.reset();
        mRefusedBytes += size;
        if (mRefusedBytes > kMostRefusedBytes) {
            mRefusedBytes = 0;
            platform::returnFreePages();  // the loop, which sees to that otherwise, never hears of these
        }
        return 0;
    }
    const int answer = kill ? kKillRequested : 0;
    if (kill) {
        log_info(mName, "received KILL request, closing service");  // says so, but only queues it: deliberate
    }
    std::unique_ptr<MqMsgWrapper> wrapper(new (std::nothrow) MqMsgWrapper(card.get()));
    if (wrapper == nullptr) {
        return answer;  // dropped
    }
    (void)card.release();  // the wrapper's from here on
    if (!pushKeptItemOut(mQueue->push(wrapper.get()))) {
        (void)wrapper.release();  // the loop's from here on, and perhaps gone already
    }
    return answer;
}

/// Takes the stream over and looks at the envelope. @return 0 or the code of "newMsg error %d"; *card is the caller's
int MqClientIpcReciver::readMessage(InMemoryStream* stream, InPostcard** card, bool* kill) const {
    if (stream == nullptr) {
        return 2;
    }
    *card = InPostcard::createInstance(stream);
    if (*card == nullptr) {
        return 3;
    }
    const char* from = nullptr;
    if ((*card)->getString(envelope::kFrom, &from) != 0) {
        return 4;
    }
    int32_t tx_id = envelope::kNoTxId;
    if (const int result = readTxId(**card, &tx_id); result != 0) {
        return result;
    }
    const char* kind = nullptr;
    const char* value = nullptr;
    for (const char* candidate : kKinds) {
        if ((*card)->getString(candidate, &value) == 0) {
            kind = candidate;
            break;
        }
    }
    if (kind == nullptr) {
        return 6;
    }
    log_debug(mName, "FROM: %s", from);
    log_debug(mName, "%s:  %s", kind, value);  // two spaces: deliberate
    *kill = kind == envelope::kReq && std::strcmp(value, envelope::kKill) == 0;
    if (tx_id != envelope::kNoTxId) {
        log_debug(mName, "TX-ID:  %d", tx_id);
    }
    return 0;
}

int MqClientIpcReciver::run() {
    const int result = mClient != nullptr ? mClient->run_block(this) : 0;
    if (mQueue->close() == 0) {
        log_info(mName, "incoming ipc queue closed");
    } else {
        log_error(mName, "incoming ipc queue close failed");
    }
    if (result != 0) {
        log_error(mName, "run error %d", 11);
    }
    return 0;
}

}  // namespace zv_loc_fw
