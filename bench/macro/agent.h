#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "macro/macro.h"

namespace bench {

/// The real executable, in this view of the device's directories, which has room for one at a time.
class AgentProcess {
public:
    /// Both controllers serve when it returns.
    explicit AgentProcess(const Stage& stage);
    /// The one that somebody has already, or a new one.
    static std::shared_ptr<AgentProcess> shared(const Stage& stage);
    [[nodiscard]] pid_t pid() const { return mProcess.pid(); }

private:
    Process mProcess;
};

/// A client of one thread, as docs/protocol.md has it: one socket, the message format's own writer and reader.
class PlainClient {
public:
    explicit PlainClient(const std::string& name);
    ~PlainClient();
    PlainClient(const PlainClient&) = delete;
    PlainClient& operator=(const PlainClient&) = delete;

    struct Request {
        std::string url;
        int timeoutSec = 60;  ///< 0: refused at once, by a reply without a transfer
        bool newConnection = false;
    };

    /// Sends a request. @return whether somebody took it
    bool send(const Request& request);
    /// Waits for one reply; its body has been in this process's memory then. @return the body's size
    std::size_t receive();
    /// Both; it ends the program when the agent does not answer.
    std::size_t get(const Request& request);

private:
    /// @return whether it was a reply
    bool parse(const void* data, std::size_t size, std::size_t* body);

    std::string mName;
    int mSocket;
    std::unique_ptr<char[]> mBuffer;
    int mTxId = 0;
};

}  // namespace bench
