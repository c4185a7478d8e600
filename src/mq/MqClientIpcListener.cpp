#include "mq/MqClientIpcListener.h"

#include <cstring>
#include <memory>
#include <new>
#include <utility>

#include "base/LargePages.h"
#include "base/ModuleLog.h"
#include "mq/Envelope.h"
#include "mq/MessageQueueClientImpl.h"
#include "mq/MessageQueueServiceCallback.h"
#include "postcard/InPostcard.h"

namespace zv_loc_fw {

namespace {

constinit ModuleLog moduleLog("MqClientIpcListener", "MqClientIpcListener");

bool isRegisterEvent(InPostcard& envelope) {
    const char* info = nullptr;
    return envelope.getString(envelope::kInfo, &info) == 0 && std::strcmp(info, envelope::kRegisterEvent) == 0;
}

}  // namespace

void MqClientIpcListener::onReceive(const char* data, uint32_t length, const pos_util::PosIpcRecver* /*recver*/) {
    const int result = receive(data, length);
    if (result != 0) {
        MODULE_LOG_ERROR(moduleLog, "onReceive failed %d", result);
    }
}

int MqClientIpcListener::receive(const char* data, uint32_t length) {
    std::unique_ptr<InMemoryStream> stream(InMemoryStream::createInstance());
    if (stream == nullptr) {
        return 1;
    }
    std::unique_ptr<char[]> copy(new (std::nothrow) char[length]);
    if (copy == nullptr) {
        return 2;
    }
    if (length > 0) {
        preferLargePages(copy.get(), length, kOwnMappingAnywhere);
        std::memcpy(copy.get(), data, length);
    }
    const void* bytes = copy.get();
    if (stream->setBufferOwnership(&bytes, length) != 0) {
        MODULE_LOG_DEBUG(moduleLog, "the ownership of copied buffer isn't transfered..");
        return 2;
    }
    (void)copy.release();  // the stream's from here on

    {
        const std::unique_ptr<InPostcard> envelope(InPostcard::createInstance());
        if (envelope == nullptr) {
            return 3;
        }
        // An empty message has no envelope to look at; it is the callback that refuses it.
        if (length > 0 && envelope->init(stream->getBuffer(), stream->getSize(), false) == 0 &&
            isRegisterEvent(*envelope) && mClient != nullptr) {
            mClient->cleanupIpcSenders();
        }
    }

    if (mCallback == nullptr) {
        return 0;  // nobody listens yet: dropped
    }
    return mCallback->newMsg(stream.release()) == 0 ? 0 : 4;
}

}  // namespace zv_loc_fw
