#include "support/Door.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <memory>

#include "mq/Envelope.h"
#include "mq/MqMsgWrapper.h"
#include "postcard/InPostcard.h"
#include "support/Input.h"

namespace fuzz {

namespace {

using namespace zv_loc_fw;

constexpr std::string_view kLastMessage = "the last message";

const std::string& socketPath() {
    static const std::string path = "/tmp/fuzz-door." + std::to_string(getpid());
    return path;
}

/// The number that the next descriptor gets: the same before and after when none was left open.
int lowestFree() {
    const int fd = dup(STDERR_FILENO);
    FUZZ_CHECK(fd >= 0);
    close(fd);
    return fd;
}

bool hasText(InPostcard& card, const char* name) {
    const char* text = nullptr;
    return card.getString(name, &text) == 0;
}

}  // namespace

/// The agent's own listener, and the end of the reception.
class Door::Listener : public pos_util::IPosIpcListener {
public:
    explicit Listener(Door* door) : mDoor(door), mInner(&door->mTransport) { mInner.setCallback(&door->mCallback); }

    void onReceive(const char* data, uint32_t length, const pos_util::PosIpcRecver* recver) override {
        const std::string_view message(data, length);
        if (message == kLastMessage && mDoor->mDelivered == mDoor->mExpected.size()) {
            mDoor->mReceiver->stop();
            return;
        }
        FUZZ_CHECK(mDoor->mDelivered < mDoor->mExpected.size());
        FUZZ_CHECK(message == mDoor->mExpected[mDoor->mDelivered]);
        ++mDoor->mDelivered;
        mInner.onReceive(data, length, recver);
    }

private:
    Door* const mDoor;
    MqClientIpcListener mInner;
};

Door::Door()
    : mLowestFree(lowestFree()),
      mQueue(BlockingQueue::createInstance("door", false)),
      mCallback("door", mQueue.get(), &mTransport, ".."),  // names no participant, so it makes no file of its own
      mListener(std::make_shared<Listener>(this)),
      mReceiver(pos_util::PosIpc::getPosIpcLocalRecver(mListener, socketPath().c_str())),
      mSocket(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    FUZZ_CHECK(mReceiver != nullptr && mSocket >= 0);
}

Door::~Door() {
    close(mSocket);
    mReceiver.reset();
    FUZZ_CHECK(access(socketPath().c_str(), F_OK) != 0);
    FUZZ_CHECK(lowestFree() == mLowestFree);
}

bool Door::send(const std::string& payload, const std::vector<int>& files) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, socketPath().data(), socketPath().size());
    iovec part = {const_cast<char*>(payload.data()), payload.size()};
    std::vector<char> control(CMSG_SPACE(files.size() * sizeof(int)));
    msghdr message = {};
    message.msg_name = &address;
    message.msg_namelen = sizeof(address);
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    if (!files.empty()) {
        message.msg_control = control.data();
        message.msg_controllen = control.size();
        cmsghdr* header = CMSG_FIRSTHDR(&message);
        header->cmsg_level = SOL_SOCKET;
        header->cmsg_type = SCM_RIGHTS;
        header->cmsg_len = CMSG_LEN(files.size() * sizeof(int));
        std::memcpy(CMSG_DATA(header), files.data(), files.size() * sizeof(int));
    }
    const bool sent = sendmsg(mSocket, &message, MSG_DONTWAIT) >= 0;
    for (const int file : files) {
        close(file);
    }
    return sent;
}

void Door::receive() {
    FUZZ_CHECK(send(std::string(kLastMessage)));
    FUZZ_CHECK(pos_util::PosIpc::startBlockingListening(*mReceiver));
    FUZZ_CHECK(mDelivered == mExpected.size());
    checkQueue();
}

/// What has passed is in the queue, in its order, and has an envelope.
void Door::checkQueue() {
    size_t next = 0;
    while (true) {
        void* item = nullptr;
        bool closed = false;
        FUZZ_CHECK(mQueue->pop(&item, TimeDiff(0), &closed) == 0 && !closed);
        const std::unique_ptr<MqMsgWrapper> message(static_cast<MqMsgWrapper*>(item));
        if (message == nullptr) {
            return;
        }
        FUZZ_CHECK(message->card() != nullptr && message->time().isValid());
        InPostcard& card = *message->card();
        FUZZ_CHECK(hasText(card, envelope::kFrom));
        FUZZ_CHECK(hasText(card, envelope::kReq) || hasText(card, envelope::kResp) || hasText(card, envelope::kInfo));
        int32_t tx_id = envelope::kNoTxId;
        FUZZ_CHECK(card.getInt32(envelope::kTxId, tx_id) == 0 || !InPostcard::hasField(card, envelope::kTxId));
        const InMemoryStream* stream = card.getBuffer();
        const std::string_view bytes(static_cast<const char*>(stream->getBuffer()), stream->getSize());
        while (next < mExpected.size() && mExpected[next] != bytes) {
            ++next;
        }
        FUZZ_CHECK(next < mExpected.size());
        ++next;
    }
}

}  // namespace fuzz
