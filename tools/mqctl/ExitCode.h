#pragma once

namespace mqctl {

/// What mqctl's exit status means; documented in docs/operating.md.
enum ExitCode : int {
    kOk = 0,                 ///< a reply, with any HTTP status
    kOwnFailure = 1,         ///< mqctl itself: cannot write, no permission, no memory
    kUsage = 2,              ///< wrong usage, or a request that would harm the agent
    kNoParticipant = 4,      ///< no such participant, or only its stale socket
    kNoReply = 5,            ///< no reply in time
    kErrorReply = 6,         ///< the agent answered with an error reply
    kTransferFailed = 7,     ///< the transfer failed
    kTransferTimedOut = 28,  ///< the transfer timed out (curl's number)
};

}  // namespace mqctl
