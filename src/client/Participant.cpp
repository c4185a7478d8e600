#include "client/Participant.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <new>
#include <utility>

#include "mq/Envelope.h"
#include "postcard/CardBuilder.h"

namespace zv_loc_fw {

namespace {

/// Longer names would be cut, and two of them could meet in one path.
constexpr size_t kMaxNameLength = envelope::kSocketPathSize - 1 - (sizeof("/dev/socket/location/mq/") - 1);

bool isName(const std::string& name) {
    return !name.empty() && name.size() <= kMaxNameLength && name != "." && name != ".." &&
           name.find('/') == std::string::npos && name.find('\0') == std::string::npos;
}

bool isAnnouncement(InPostcard& card) {
    const char* info = nullptr;
    return card.getString(envelope::kInfo, &info) == 0 && std::strcmp(info, envelope::kRegisterEvent) == 0;
}

}  // namespace

ParticipantState lookUpParticipant(const std::string& name) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string path = envelope::kSocketDirectory + name;
    struct stat file {};
    if (!isName(name) || path.size() >= sizeof(address.sun_path) || ::stat(path.c_str(), &file) != 0 ||
        !S_ISSOCK(file.st_mode)) {
        return ParticipantState::kAbsent;
    }
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    const int descriptor = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (descriptor < 0) {
        return ParticipantState::kLive;  // cannot tell: the careful answer
    }
    const bool refused = ::connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 &&
                         (errno == ECONNREFUSED || errno == ENOENT);
    (void)::close(descriptor);
    return refused ? ParticipantState::kStale : ParticipantState::kLive;
}

std::unique_ptr<Participant> Participant::create(const std::string& name, std::string* error) {
    if (!isName(name)) {
        *error = "\"" + name + "\" is no name for a participant (1 to " + std::to_string(kMaxNameLength) +
                 " characters, no \"/\")";
        return nullptr;
    }
    if (lookUpParticipant(name) == ParticipantState::kLive) {
        *error = "\"" + name + "\" is taken: another participant listens under that name";
        return nullptr;
    }
    std::unique_ptr<Participant> participant(new (std::nothrow) Participant(name));
    if (participant == nullptr) {
        *error = "no memory";
        return nullptr;
    }
    return participant->start(error) ? std::move(participant) : nullptr;
}

bool Participant::start(std::string* error) {
    CardBuilder registration(1, 1);
    registration.addString(1, envelope::kTo, envelope::kHub);
    registration.addString(1, envelope::kFrom, mName.c_str());
    registration.addString(1, envelope::kReq, envelope::kRegister);
    registration.finalize(1);
    errno = 0;
    if (registration.result() != 0 || mTransport.send(registration.card()->getEncodedBuffer()) != 0 ||
        lookUpParticipant(mName) != ParticipantState::kLive) {
        *error = std::string("cannot listen on ") + envelope::kSocketDirectory + mName;
        struct stat directory {};
        if (::stat(envelope::kSocketDirectory, &directory) != 0) {
            *error += std::string(": ") + std::strerror(errno) + " (is this the device, or its script?)";
        }
        return false;
    }
    mThread.reset(new (std::nothrow) ThreadImpl(mName.c_str(), this, false));
    if (mThread == nullptr || mThread->launch() != 0) {
        mThread.reset();
        *error = "cannot start a thread";
        return false;
    }
    return true;
}

Participant::~Participant() {
    (void)mTransport.shutdown();
    if (mThread != nullptr) {
        (void)mThread->join();
    }
}

bool Participant::send(OutPostcard& card) {
    return mTransport.send(card.getEncodedBuffer()) == 0;
}

std::unique_ptr<InPostcard> Participant::receive(Clock::time_point deadline) {
    std::unique_lock lock(mMutex);
    if (!mArrived.wait_until(lock, deadline, [this] { return !mMessages.empty(); })) {
        return nullptr;
    }
    std::unique_ptr<InPostcard> message = std::move(mMessages.front());
    mMessages.pop_front();
    return message;
}

int Participant::newMsg(InMemoryStream* stream) {
    std::unique_ptr<InPostcard> card(InPostcard::createInstance(stream));
    if (card == nullptr || isAnnouncement(*card)) {
        return 0;
    }
    {
        const std::lock_guard lock(mMutex);
        mMessages.push_back(std::move(card));
    }
    mArrived.notify_one();
    return 0;
}

int Participant::run() {
    return mTransport.run_block(this);
}

}  // namespace zv_loc_fw
