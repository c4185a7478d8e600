#pragma once

#include <string>

#include "CardBytes.h"

namespace mqctl {

/// A card for people: one line for each field, nested cards indented; long values are cut.
///
///     TO         string  "inet-agent-cs"
///     TX-ID      int32   7
///     POST-DATA  blob    3 bytes 00 01 02
///
/// @param indent blanks before each line
[[nodiscard]] std::string cardToText(const Fields& fields, size_t indent);

/// "81 bytes, 4 fields"
[[nodiscard]] std::string summaryOf(size_t size, const Fields& fields);

/// A value as it stands in cardToText(), uncut.
[[nodiscard]] std::string valueToText(const Field& field);

}  // namespace mqctl
