#include "client/Participant.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
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

std::string pathOf(const std::string& name) {
    return envelope::kSocketDirectory + name;
}

bool isAnnouncement(InPostcard& card) {
    const char* info = nullptr;
    return card.getString(envelope::kInfo, &info) == 0 && std::strcmp(info, envelope::kRegisterEvent) == 0;
}

}  // namespace

bool isParticipantName(const std::string& name) {
    return !name.empty() && name.size() <= kMaxNameLength && name != "." && name != ".." && name != envelope::kHub &&
           name.find('/') == std::string::npos && name.find('\0') == std::string::npos;
}

std::string noParticipantName(const std::string& name) {
    return "\"" + name + "\" is no name for a participant (1 to " + std::to_string(kMaxNameLength) +
           " characters, no \"/\", not \"" + envelope::kHub + "\")";
}

bool hasSocket(const std::string& name) {
    struct stat file {};
    return isParticipantName(name) && ::stat(pathOf(name).c_str(), &file) == 0 && S_ISSOCK(file.st_mode);
}

ParticipantState lookUpParticipant(const std::string& name) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string path = pathOf(name);
    if (path.size() >= sizeof(address.sun_path) || !hasSocket(name)) {
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

std::unique_ptr<Participant> Participant::create(const std::string& name, ParticipantOptions options,
                                                 std::string* error) {
    std::unique_ptr<Participant> participant(new (std::nothrow) Participant(name, std::move(options)));
    if (participant == nullptr) {
        *error = "no memory";
        return nullptr;
    }
    return participant->checkNames(error) && participant->start(error) ? std::move(participant) : nullptr;
}

bool Participant::checkNames(std::string* error) const {
    std::vector<std::string> names = mOptions.aliases;
    names.insert(names.begin(), mName);
    for (const std::string& name : names) {
        if (!isParticipantName(name)) {
            *error = noParticipantName(name);
            return false;
        }
        if (!mOptions.replaceLive && lookUpParticipant(name) == ParticipantState::kLive) {
            *error = "\"" + name + "\" is taken: another participant listens under that name";
            return false;
        }
    }
    if (std::count(names.begin(), names.end(), mName) != 1) {
        *error = "\"" + mName + "\" cannot be an alias of itself";
        return false;
    }
    return true;
}

bool Participant::start(std::string* error) {
    if (!registerName(error)) {
        return false;
    }
    for (const std::string& alias : mOptions.aliases) {
        if (!addAlias(alias, error)) {
            return false;
        }
    }
    mThread.reset(new (std::nothrow) ThreadImpl(mName.c_str(), this, false));
    if (mThread == nullptr || mThread->launch() != 0) {
        mThread.reset();
        *error = "cannot start a thread";
        return false;
    }
    return true;
}

bool Participant::registerName(std::string* error) {
    CardBuilder registration(1, 1);
    registration.addString(1, envelope::kTo, envelope::kHub);
    registration.addString(1, envelope::kFrom, mName.c_str());
    registration.addString(1, envelope::kReq, envelope::kRegister);
    registration.finalize(1);
    if (registration.result() != 0 || mTransport.send(registration.card()->getEncodedBuffer()) != 0 ||
        lookUpParticipant(mName) != ParticipantState::kLive) {
        *error = "cannot listen on " + pathOf(mName);
        struct stat directory {};
        if (::stat(envelope::kSocketDirectory, &directory) != 0) {
            *error += std::string(": ") + std::strerror(errno) + " (is this the device, or its script?)";
        } else if (::access(envelope::kSocketDirectory, W_OK) != 0) {
            *error += std::string(": ") + std::strerror(errno);
        }
        return false;
    }
    return true;
}

bool Participant::addAlias(const std::string& alias, std::string* error) {
    CardBuilder request(1, 1);
    request.addString(1, envelope::kTo, envelope::kHub);
    request.addString(1, envelope::kFrom, mName.c_str());
    request.addString(1, envelope::kReq, envelope::kAddAlias);
    request.addString(1, envelope::kAlias, alias.c_str());
    request.finalize(1);
    const bool built = request.result() == 0;
    const int result = built ? mTransport.send(request.card()->getEncodedBuffer()) : 0;
    // A link that was made but not announced is this participant's, too.
    constexpr int kNotMade = 10;
    const std::string path = pathOf(alias);
    struct stat link {};
    if (built && result != kNotMade && ::lstat(path.c_str(), &link) == 0 && S_ISLNK(link.st_mode)) {
        mLinks.push_back({path, link.st_dev, link.st_ino, link.st_mtim});
    }
    if (!built || result != 0) {
        *error = "cannot make " + path + " an alias of " + mName;
        return false;
    }
    return true;
}

Participant::~Participant() {
    stop();
    for (const FileIdentity& made : mLinks) {
        struct stat link {};
        if (::lstat(made.path.c_str(), &link) == 0 && link.st_dev == made.device && link.st_ino == made.inode &&
            link.st_mtim.tv_sec == made.made.tv_sec && link.st_mtim.tv_nsec == made.made.tv_nsec) {
            (void)::unlink(made.path.c_str());
        }
    }
}

void Participant::stop() {
    (void)mTransport.shutdown();
    if (mThread != nullptr) {
        (void)mThread->join();
        mThread.reset();
    }
}

bool Participant::send(OutPostcard& card) {
    return mTransport.send(card.getEncodedBuffer()) == 0;
}

bool Participant::deliver(const std::string& to, const OutPostcard& card) {
    const MemoryStreamBase* bytes = card.getEncodedBuffer();
    if (!isParticipantName(to) || bytes == nullptr || bytes->getSize() > pos_util::kPosIpcMaxMessage) {
        return false;
    }
    // A sender of this call's own: no send waits for another thread's.
    const std::shared_ptr<pos_util::PosIpcSender> sender = pos_util::PosIpc::getPosIpcLocalSender(pathOf(to).c_str());
    return sender != nullptr && pos_util::PosIpc::send(*sender, static_cast<const uint8_t*>(bytes->getBuffer()),
                                                       static_cast<uint32_t>(bytes->getSize()), -1);
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
    if (card == nullptr || (!mOptions.keepAnnouncements && isAnnouncement(*card))) {
        return 0;
    }
    if (mOptions.handler) {
        mOptions.handler(std::move(card));
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
