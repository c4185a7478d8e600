#pragma once

#include <memory>

#include "postcard/InPostcard.h"
#include "postcard/OutPostcard.h"

namespace zv_loc_fw {

/// Whether a request says whom to answer: "FROM", "REQ" and "TX-ID" can be read.
[[nodiscard]] bool isAnswerable(InPostcard& request);

/// The result of a request that ended without one, for agents that are configured to answer those as well: the fields of
/// a failed transfer, with the text "request rejected %d". One thread at a time.
///
/// @param request its "FROM", "REQ", "TX-ID" and, when it is there, "TO" are used
/// @param controller stands as sender when the request has no "TO"
/// @param code of the step that failed
/// @return the finished card; null without memory, or when the request is not answerable
[[nodiscard]] std::unique_ptr<OutPostcard> rejectionOf(InPostcard& request, const char* controller, int code);

}  // namespace zv_loc_fw
