#pragma once

#include <cstdint>
#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

/// Messages as fields and as bytes. No code of the product's: a test compares two independent readings of the format.
namespace test_support {

/// Type codes of fields on the wire.
enum class Type : uint16_t {
    Card = 1,
    Int64 = 10,
    UInt64 = 11,
    Int32 = 12,
    UInt32 = 13,
    Int16 = 14,
    UInt16 = 15,
    Int8 = 16,
    UInt8 = 17,
    Bool = 18,
    String = 19,
    Blob = 20,
    Double = 21,
    Float = 22,
    ArrayInt64 = 30,
    ArrayUInt64 = 31,
    ArrayInt32 = 32,
    ArrayUInt32 = 33,
    ArrayInt16 = 34,
    ArrayUInt16 = 35,
    ArrayInt8 = 36,
    ArrayUInt8 = 37,
    ArrayBool = 38,
    ArrayDouble = 39,
    ArrayFloat = 40,
};

struct Field {
    std::string name;
    Type type;
    /// The value's bytes without any length word; a string's without its final zero.
    std::string value;
    friend bool operator==(const Field&, const Field&) = default;
};

/// An ordered list of fields, with its bytes.
class Card {
public:
    Card() = default;

    Card& add(const std::string& name, Type type, std::string value);
    Card& string(const std::string& name, const std::string& value) { return add(name, Type::String, value); }
    Card& blob(const std::string& name, const std::string& value) { return add(name, Type::Blob, value); }
    Card& int32(const std::string& name, int32_t value);
    Card& boolean(const std::string& name, bool value);
    Card& card(const std::string& name, const Card& inner) { return add(name, Type::Card, inner.encode()); }

    [[nodiscard]] std::string encode() const;
    /// Nothing when the bytes are not exactly one finished card.
    [[nodiscard]] static std::optional<Card> decode(const std::string& bytes);

    [[nodiscard]] const std::vector<Field>& fields() const { return mFields; }
    /// The names in their order: what a reply is compared by.
    [[nodiscard]] std::vector<std::string> names() const;
    [[nodiscard]] bool has(const std::string& name) const;
    /// The first field of the name, if it is of that type; nothing otherwise.
    [[nodiscard]] std::optional<std::string> getString(const std::string& name) const {
        return value(name, Type::String);
    }
    [[nodiscard]] std::optional<std::string> getBlob(const std::string& name) const { return value(name, Type::Blob); }
    [[nodiscard]] std::optional<int32_t> getInt32(const std::string& name) const;
    [[nodiscard]] std::optional<Card> getCard(const std::string& name) const;
    /// One line per card for failure messages; long values are cut.
    [[nodiscard]] std::string describe() const;

private:
    [[nodiscard]] std::optional<std::string> value(const std::string& name, Type type) const;

    std::vector<Field> mFields;
};
void PrintTo(const Card& card, std::ostream* out);

}  // namespace test_support
