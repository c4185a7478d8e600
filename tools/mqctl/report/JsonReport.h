#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

#include "report/Report.h"

namespace mqctl::report {

/// The whole model: requests, wedges, runs, notes, summary. Absent what the log does not tell.
nlohmann::ordered_json jsonReport(const Report& report);

/// The requests that reached the network as HAR 1.2, with the queue wait as "blocked". No fields of our own.
nlohmann::ordered_json harReport(const Report& report);

/// Bytes that are no UTF-8 are printable forms by then; nothing is lost to an exception.
std::string dumpJson(const nlohmann::ordered_json& json, bool pretty);

}  // namespace mqctl::report
