#pragma once

#include <string>
#include <string_view>

namespace mqctl::report {

/// What a client put into the log may be anything. This makes it fit for a terminal and a page: valid UTF-8 in which
/// control characters, broken bytes and characters that turn the reading direction show as "\x1b" or "\u{202e}".
std::string printable(std::string_view text);

/// The same, for text and attributes of a page.
std::string escaped(std::string_view text);

/// A URL without user, password, query and fragment.
std::string withoutSecrets(std::string_view url);

/// At most `length` characters, the last one an ellipsis when there were more. Takes printable text.
std::string shortened(const std::string& text, size_t length);

/// Columns that a printable text takes, one for each character.
size_t columns(std::string_view text);

/// "0.412", or digits as asked.
std::string fixed(double value, int digits);
/// "412 ms", "1.20 s", "3 min 20 s"
std::string duration(double seconds);

}  // namespace mqctl::report
