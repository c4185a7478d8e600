#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace mqctl {

/// What a field's value consists of.
enum class Kind : uint8_t { kCard, kSigned, kUnsigned, kBool, kFloating, kString, kBlob };

/// One of the 25 field types.
// NOLINTNEXTLINE(clang-analyzer-optin.performance.Padding): the table of types reads best in this order
struct FieldType {
    uint16_t code;     ///< zv_loc_fw::eFieldType
    const char* name;  ///< as mqctl writes it: "int32", "int32[]"
    Kind kind;
    uint8_t width;  ///< bytes of the value, or of an array's element; 0 for cards, strings and blobs
    bool array;
};

/// @return null when there is no such type
[[nodiscard]] const FieldType* findFieldType(uint16_t code);
[[nodiscard]] const FieldType* findFieldType(std::string_view name);

/// A field as it stands in the bytes, whatever they hold: it encodes to the same bytes.
struct Field {
    std::string name;                 ///< without its terminating zero
    const FieldType* type = nullptr;  ///< never null in a field that was read
    std::string value;                ///< the bytes behind the length word; a string's with its zero; empty for a card
    std::vector<Field> fields = {};   ///< of a nested card
};
using Fields = std::vector<Field>;

/// Where bytes stop being a card, and why.
struct Malformed {
    size_t offset = 0;
    std::string reason;
};

/// Reads the card that begins at `begin`; others may follow it.
/// @param fields out: also when it is malformed, then those before the damage
/// @return where it ends; nothing when it is malformed
[[nodiscard]] std::optional<size_t> parseCard(std::string_view bytes, size_t begin, Fields* fields, Malformed* why);

/// The bytes of a finished card. Names and values must fit their length words.
[[nodiscard]] std::string encodeCard(const Fields& fields);

/// Whether a field can have that name: 1 to 255 characters, none of them zero.
[[nodiscard]] bool isFieldName(std::string_view name);

}  // namespace mqctl
