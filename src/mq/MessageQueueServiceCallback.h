#pragma once

namespace zv_loc_fw {

class InMemoryStream;

/// Takes the messages of a transport, on its listening thread.
class MessageQueueServiceCallback {
public:
    virtual ~MessageQueueServiceCallback() = default;
    /// @param stream one message; owned by the callee from now on, whatever it answers
    /// @return 0; anything else is only logged by the caller
    virtual int newMsg(InMemoryStream* stream) = 0;
};

}  // namespace zv_loc_fw
