#include "mq/MessageQueueClientImpl.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "base/AutoLock.h"
#include "base/ModuleLog.h"
#include "mq/MqClientIpcListener.h"
#include "platform/posutil/UniqueFd.h"
#include "postcard/CardBuilder.h"
#include "postcard/InPostcard.h"
#include "postcard/OutPostcard.h"

namespace zv_loc_fw {

namespace {

constinit ModuleLog moduleLog("MessageQ_Client", "MessageQ_Client");

constexpr mode_t kSocketMode = S_IRWXU | S_IRWXG;  // 0770

/// The socket path of a participant, cut to the buffer.
void formatSocketPath(char (&path)[envelope::kSocketPathSize], const char* name) {
    // The result is not needed: long names are cut by design, and two of them may meet in one path.
    (void)std::snprintf(path, sizeof(path), envelope::kSocketPathFormat, name);
}

/// No name leads out of the socket directory.
bool namesParticipant(const char* name) {
    return name[0] != '\0' && std::strcmp(name, ".") != 0 && std::strcmp(name, "..") != 0 &&
           std::strchr(name, '/') == nullptr;
}

/// What a name stands for in the socket directory.
enum class Destination { kMissing, kOutside, kThere };

/// An alias is a link to a socket of the same directory; one to a socket elsewhere would lend its maker the agent's
/// rights, and one whose participant has gone does not exist. The call for what is no link is a single one.
Destination destinationOf(const char* path) {
    struct stat file {};
    if (::lstat(path, &file) != 0) {
        return Destination::kMissing;
    }
    if (!S_ISLNK(file.st_mode)) {
        return Destination::kThere;
    }
    char directory[PATH_MAX];
    char target[PATH_MAX];
    if (::realpath(path, target) == nullptr) {
        return errno == ENOENT || errno == ENOTDIR ? Destination::kMissing : Destination::kOutside;
    }
    if (::realpath(envelope::kSocketDirectory, directory) == nullptr) {
        return Destination::kOutside;
    }
    const size_t length = std::strlen(directory);
    const bool inside = std::strncmp(target, directory, length) == 0 && std::strrchr(target, '/') == target + length;
    return inside ? Destination::kThere : Destination::kOutside;
}

/// The rights are for the socket: if it has been replaced by a link meanwhile, not for what that leads to.
/// @return false, with errno
bool setSocketMode(const char* path) {
    const pos_util::UniqueFd file(::open(path, O_PATH | O_NOFOLLOW | O_CLOEXEC));
    struct stat status {};
    if (!file.valid() || ::fstat(file.get(), &status) != 0) {
        return false;
    }
    if (!S_ISSOCK(status.st_mode)) {
        errno = ENOTSOCK;
        return false;
    }
    char itself[32];
    (void)std::snprintf(itself, sizeof(itself), "/proc/self/fd/%d", file.get());  // fchmod takes no O_PATH
    return ::chmod(itself, kSocketMode) == 0;
}

/// Reads a text that must be there. @return 0; `missing` or `null` otherwise
int readText(InPostcard& card, const char* key, const char** value, int missing, int null) {
    if (card.getString(key, value) != 0) {
        return missing;
    }
    return *value != nullptr ? 0 : null;
}

/// As readText, for a name: one that names no participant counts like none at all.
int readName(InPostcard& card, const char* key, const char** name, int missing, int null) {
    const int result = readText(card, key, name, missing, null);
    return result != 0 || namesParticipant(*name) ? result : null;
}

/// @return 0; 1 no memory; 2 init; 3 TO; 4 FROM; 5 INFO; 6 CLIENT; 7 finalize
int buildRegisterEvent(std::unique_ptr<OutPostcard>* event, const char* to, const char* client) {
    CardBuilder builder(1, 2);
    builder.addString(3, envelope::kTo, to);
    builder.addString(4, envelope::kFrom, envelope::kHubSender);
    builder.addString(5, envelope::kInfo, envelope::kRegisterEvent);
    builder.addString(6, envelope::kClient, client);
    builder.finalize(7);
    *event = builder.takeCard();
    return builder.result();
}

struct DirectoryCloser {
    void operator()(DIR* directory) const { (void)::closedir(directory); }
};

}  // namespace

MessageQueueClientImpl::MessageQueueClientImpl() : mMutex("MessageQ_Client", false) {}

MessageQueueClientImpl::~MessageQueueClientImpl() {
    // No thread sends or listens any more. Senders before the receiver, the listener last: it is the receiver's.
    mStoppable.store(nullptr);
    {
        const AutoLock guard(&mMutex);
        mIpcSendersMap.clear();
    }
    mReceiver.reset();
}

int MessageQueueClientImpl::setServerNameDup(const char* /*name*/) {
    return 0;
}

int MessageQueueClientImpl::connect(int /*flag*/) {
    return 0;
}

int MessageQueueClientImpl::send(const MemoryStreamBase* stream) {
    const int result = deliver(stream);
    if (result != 0) {
        MODULE_LOG_ERROR(moduleLog, "send failed %d", result);
    }
    return result;
}

int MessageQueueClientImpl::deliver(const MemoryStreamBase* stream) {
    if (stream == nullptr) {
        return 2;
    }
    const std::unique_ptr<InPostcard> request(InPostcard::createInstance());
    if (request == nullptr) {
        return 3;
    }
    if (request->init(stream->getBuffer(), stream->getSize(), false) != 0) {
        return 4;
    }
    const char* to = nullptr;
    if (const int result = readText(*request, envelope::kTo, &to, 5, 6); result != 0) {
        return result;
    }
    if (std::strcmp(to, envelope::kHub) != 0) {
        sendMessage(to, stream);
        return 0;  // whatever became of the delivery
    }

    const char* kind = nullptr;
    if (const int result = readText(*request, envelope::kReq, &kind, 7, 8); result != 0) {
        return result;
    }
    if (std::strcmp(kind, envelope::kRegister) == 0) {
        if (const int result = processRegisterMessage(*request); result != 0) {
            MODULE_LOG_ERROR(moduleLog, "register client failed %d", result);
            return 9;
        }
    } else if (std::strcmp(kind, envelope::kAddAlias) == 0) {
        if (const int result = processAddAliasMessage(*request); result != 0) {
            MODULE_LOG_ERROR(moduleLog, "add alias failed %d", result);
            return 10;
        }
    }
    return announce(*request);  // requests of an unknown kind announce their sender, too: deliberate
}

int MessageQueueClientImpl::processRegisterMessage(InPostcard& request) {
    const char* name = nullptr;
    if (const int result = readName(request, envelope::kFrom, &name, 2, 3); result != 0) {
        return result;
    }
    if (mReceiver != nullptr) {
        return 1;  // one name only
    }
    formatSocketPath(mOwnPath, name);
    MODULE_LOG_DEBUG(moduleLog, "processRegisterMessage: %s", mOwnPath);
    mListener = std::make_shared<MqClientIpcListener>(this);
    mReceiver = pos_util::PosIpc::getPosIpcLocalRecver(mListener, mOwnPath);
    mStoppable.store(mReceiver.get());
    if (!setSocketMode(mOwnPath)) {
        const int error = errno;
        MODULE_LOG_ERROR(moduleLog, "error setting permission for socket file: %d, [%s]", error, std::strerror(error));
    }
    return 0;
}

int MessageQueueClientImpl::processAddAliasMessage(InPostcard& request) {
    const char* alias = nullptr;
    if (const int result = readName(request, envelope::kAlias, &alias, 2, 3); result != 0) {
        return result;
    }
    char alias_path[envelope::kSocketPathSize];
    formatSocketPath(alias_path, alias);
    MODULE_LOG_DEBUG(moduleLog, "processRegisterMessage: %s", alias_path);  // the register step's text: deliberate
    if (mReceiver == nullptr) {
        return 1;
    }
    if (std::strcmp(alias_path, mOwnPath) == 0) {
        return 4;  // the link would replace the own socket and point to itself
    }
    struct stat old_file {};
    // Does not follow links: a link that leads nowhere is in the way, too.
    if (::lstat(alias_path, &old_file) == 0 && ::unlink(alias_path) != 0) {
        return 4;
    }
    if (::symlink(mOwnPath, alias_path) != 0) {
        MODULE_LOG_ERROR(moduleLog, "symlink %d", errno);
        return 5;
    }
    return 0;
}

int MessageQueueClientImpl::announce(InPostcard& request) {
    const char* client = nullptr;
    if (const int result = readText(request, envelope::kFrom, &client, 11, 12); result != 0) {
        return result;
    }
    const std::unique_ptr<DIR, DirectoryCloser> directory(::opendir(envelope::kSocketDirectory));
    if (directory == nullptr) {
        return 13;
    }
    int result = 1;  // a directory that yields not even "." counts as no memory: deliberate
    // The directory stream is this call's own, so readdir is safe here whatever other threads do.
    while (const dirent* entry = ::readdir(directory.get())) {  // NOLINT(concurrency-mt-unsafe)
        result = 0;
        if (std::strcmp(entry->d_name, ".") == 0 || std::strcmp(entry->d_name, "..") == 0) {
            continue;
        }
        // Each card is released before the next is built; nobody can tell.
        std::unique_ptr<OutPostcard> event;
        result = buildRegisterEvent(&event, entry->d_name, client);
        if (result != 0) {
            break;
        }
        sendMessage(entry->d_name, event->getEncodedBuffer());
    }
    if (result != 0) {
        MODULE_LOG_ERROR(moduleLog, "BroadcastClientRegistration %d", result);
        return 13;
    }
    return 0;
}

void MessageQueueClientImpl::sendMessage(const char* name, const MemoryStreamBase* stream) {
    MODULE_LOG_DEBUG(moduleLog, "Send normal message to %s", name);
    if (!namesParticipant(name)) {
        MODULE_LOG_WARNING(moduleLog, "\"%s\" names no participant, message dropped", name);
        return;
    }
    if (stream->getSize() > UINT32_MAX) {
        MODULE_LOG_ERROR(moduleLog, "message of %zu bytes to %s is too long, dropped", stream->getSize(), name);
        return;
    }
    char path[envelope::kSocketPathSize];
    formatSocketPath(path, name);

    // The whole delivery happens under the mutex, so sends of different threads never interleave.
    const AutoLock guard(&mMutex);
    auto entry = mIpcSendersMap.find(name);
    const Destination destination = destinationOf(path);
    if (destination == Destination::kMissing) {
        if (entry != mIpcSendersMap.end()) {
            mIpcSendersMap.erase(entry);
        }
        return;
    }
    if (destination == Destination::kOutside) {
        MODULE_LOG_WARNING(moduleLog, "%s leads out of the socket directory, message dropped", path);
        return;
    }
    if (entry == mIpcSendersMap.end()) {
        std::shared_ptr<pos_util::PosIpcSender> sender = pos_util::PosIpc::getPosIpcLocalSender(path);
        if (sender == nullptr) {
            return;  // logged there
        }
        entry = mIpcSendersMap.emplace(name, std::move(sender)).first;
    }
    (void)pos_util::PosIpc::send(*entry->second, static_cast<const uint8_t*>(stream->getBuffer()),
                                 static_cast<uint32_t>(stream->getSize()), -1);
}

void MessageQueueClientImpl::cleanupIpcSenders() {
    MODULE_LOG_DEBUG(moduleLog, "enter cleanupIpcSenders");
    const AutoLock guard(&mMutex);
    for (auto entry = mIpcSendersMap.begin(); entry != mIpcSendersMap.end();) {
        char path[envelope::kSocketPathSize];
        formatSocketPath(path, entry->first.c_str());
        if (destinationOf(path) != Destination::kMissing) {
            ++entry;
            continue;
        }
        MODULE_LOG_WARNING(moduleLog, "Socket file doesn't exit, erese it from mIpcSendersMap");
        entry = mIpcSendersMap.erase(entry);
    }
}

int MessageQueueClientImpl::run_block(MessageQueueServiceCallback* callback) {
    if (mReceiver == nullptr || mListener == nullptr) {
        return 0;
    }
    mListener->setCallback(callback);
    (void)pos_util::PosIpc::startBlockingListening(*mReceiver);
    return 0;
}

int MessageQueueClientImpl::shutdown() {
    if (pos_util::PosIpcRecver* receiver = mStoppable.load(); receiver != nullptr) {
        receiver->stop();
    }
    return 0;
}

}  // namespace zv_loc_fw
