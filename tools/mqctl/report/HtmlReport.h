#pragma once

#include <string>

#include "report/Report.h"

namespace mqctl::report {

/// One page that needs nothing else: no script, no file, no font from outside, and it forbids itself to load any. Well
/// formed as XML, too.
std::string htmlReport(const Report& report, const std::string& title);

}  // namespace mqctl::report
