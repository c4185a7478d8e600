#pragma once

#include <string>

#include "macro/macro.h"

/// Peers that more than one table starts.
namespace bench {

struct RunningPeer {
    Process process;
    int port = 0;  ///< 0: it does not run
};

/// The reason goes to `why` when it does not run.
RunningPeer startSquid(const Stage& stage, std::string* why);
RunningPeer startAria2(const Stage& stage, std::string* why);

}  // namespace bench
