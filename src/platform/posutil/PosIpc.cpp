#include "platform/posutil/PosIpc.h"

#include <new>

#include "platform/posutil/LocalRecver.h"
#include "platform/posutil/LocalSender.h"
#include "platform/posutil/PosLogLine.h"
#include "platform/posutil/SocketAddress.h"

namespace pos_util {

namespace {

constexpr char kTag[] = "PosIpc";

bool makeAddress(const char* path, SocketAddress& address) {
    const bool made = address.set(path);
    if (!made) {
        POS_LOG_ERROR(kTag, "no path of a socket file: \"%s\"", path != nullptr ? path : "(null)");
    }
    return made;
}

}  // namespace

std::shared_ptr<PosIpcSender> PosIpc::getPosIpcLocalSender(const char* path) {
    SocketAddress address;
    if (!makeAddress(path, address)) {
        return nullptr;
    }
    std::unique_ptr<LocalSender> sender(new (std::nothrow) LocalSender(address));
    if (sender == nullptr) {
        POS_LOG_ERROR(kTag, "no memory for a sender to %s", path);
    }
    return sender;
}

std::unique_ptr<PosIpcRecver> PosIpc::getPosIpcLocalRecver(const std::shared_ptr<IPosIpcListener>& listener,
                                                           const char* path) {
    SocketAddress address;
    if (!makeAddress(path, address)) {
        return nullptr;
    }
    if (listener == nullptr) {
        POS_LOG_ERROR(kTag, "%s: nobody to take what arrives", path);
        return nullptr;
    }
    std::unique_ptr<LocalRecver> recver(new (std::nothrow) LocalRecver(listener, address));
    if (recver == nullptr) {
        POS_LOG_ERROR(kTag, "no memory to receive on %s", path);
        return nullptr;
    }
    if (!recver->open()) {
        return nullptr;
    }
    return recver;
}

bool PosIpc::startBlockingListening(PosIpcRecver& recver) {
    // Every receiver comes from getPosIpcLocalRecver, every sender from getPosIpcLocalSender.
    return static_cast<LocalRecver&>(recver).listen();
}

bool PosIpc::send(PosIpcSender& sender, const uint8_t* data, uint32_t length, int32_t /*message_id*/) {
    return static_cast<LocalSender&>(sender).send(data, length);
}

}  // namespace pos_util
