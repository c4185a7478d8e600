#pragma once

#include <optional>
#include <string>

#include "CardBytes.h"

namespace mqctl {

/// A field from the command line: KEY=TEXT, KEY:TYPE=VALUE, KEY:blob=@FILE, KEY:blob=hex:0AFF, KEY:int32[]=1,2. The
/// agent's own fields have their type without being told ("TX-ID=7" is an int32); every other without a type is text.
/// @param why out: what is wrong when nothing is returned
[[nodiscard]] std::optional<Field> fieldFromArgument(const std::string& argument, std::string* why);

/// A field of text, or of a number.
[[nodiscard]] Field stringField(const std::string& name, const std::string& value);
[[nodiscard]] Field int32Field(const std::string& name, int32_t value);
[[nodiscard]] Field boolField(const std::string& name, bool value);
[[nodiscard]] Field cardField(const std::string& name, Fields fields);

/// The first field of that name, of whatever type.
[[nodiscard]] const Field* findField(const Fields& fields, const std::string& name);
/// The text of the first string of that name; empty when there is none.
[[nodiscard]] std::string textOf(const Fields& fields, const std::string& name);
/// The first int32 of that name.
[[nodiscard]] std::optional<int32_t> int32Of(const Fields& fields, const std::string& name);

}  // namespace mqctl
