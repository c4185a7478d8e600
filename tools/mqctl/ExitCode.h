#pragma once

namespace mqctl {

/// What mqctl's exit status means; documented in docs/mqctl.md.
enum ExitCode : int {
    kOk = 0,                 ///< done; as with curl, any HTTP status is success unless --fail is given
    kOwnFailure = 1,         ///< mqctl itself: cannot write, no permission, no memory
    kUsage = 2,              ///< wrong usage, or refused because it would harm others
    kMalformed = 3,          ///< a malformed postcard, JSON or log
    kNoParticipant = 4,      ///< no such participant, or only its stale socket
    kNoReply = 5,            ///< no reply in time; `listen` ran out of time before COUNT
    kErrorReply = 6,         ///< the agent answered with an error reply; a controller is not healthy
    kTransferFailed = 7,     ///< the transfer failed
    kHttpError = 22,         ///< HTTP status of 400 or more, with --fail (curl's number)
    kTransferTimedOut = 28,  ///< the transfer timed out (curl's number)
    kSignalled = 128,        ///< plus the signal's number: 130 SIGINT, 143 SIGTERM
};

}  // namespace mqctl
