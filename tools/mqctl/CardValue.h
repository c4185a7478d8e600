#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "CardBytes.h"

namespace mqctl {

/// A number or bool of a field, or an element of an array, as text: "7", "true", "1.5", "inf", "nan:0x7ff8...". A bool
/// byte other than 0 and 1 is its number. The text reads back to the same bytes.
/// @param bytes type.width of them
[[nodiscard]] std::string toText(const FieldType& type, const char* bytes);

/// The opposite. Integers also as 0x...; "nan" without bits is the usual one.
/// @param bytes out: type.width bytes are appended
/// @return whether the text is a value of that type
[[nodiscard]] bool appendFromText(const FieldType& type, std::string_view text, std::string* bytes);

/// An integer, sign-extended from its width, in a type of Kind::kSigned, kUnsigned or kBool.
[[nodiscard]] uint64_t integerAt(const FieldType& type, const char* bytes);
/// Whether an integer of that many bits (its sign apart) fits; then it is appended.
[[nodiscard]] bool appendInteger(const FieldType& type, bool negative, uint64_t magnitude, std::string* bytes);

/// A number of Kind::kFloating; NaN loses its bits here.
[[nodiscard]] double floatingAt(const FieldType& type, const char* bytes);
/// @return whether the value fits: a finite double that a float cannot hold does not
[[nodiscard]] bool appendFloating(const FieldType& type, double value, std::string* bytes);

}  // namespace mqctl
