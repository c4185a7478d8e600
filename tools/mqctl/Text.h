#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace mqctl {

[[nodiscard]] bool isUtf8(std::string_view text);

/// Fit for a terminal: control characters and bytes that are no UTF-8 as \n, \t, \xNN; everything else as it is.
[[nodiscard]] std::string printable(std::string_view text);
/// Columns that UTF-8 text takes, one for each character.
[[nodiscard]] size_t columnsOf(std::string_view text);
/// The text, or its beginning and "..." so that it takes no more than `columns`.
[[nodiscard]] std::string cutTo(std::string_view text, size_t columns);

/// "0A FF"; lower case, two digits a byte.
[[nodiscard]] std::string toHex(std::string_view bytes, const char* separator);
/// Pairs of digits, blanks between them ignored. @return nothing when something else is in it, or a digit is missing
[[nodiscard]] std::optional<std::string> fromHex(std::string_view text);

[[nodiscard]] std::string toBase64(std::string_view bytes);
/// @return nothing when the text is no canonical base64 with padding
[[nodiscard]] std::optional<std::string> fromBase64(std::string_view text);

}  // namespace mqctl
