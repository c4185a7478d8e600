#include "support/Card.h"

#include <cstring>
#include <ostream>

namespace test_support {
namespace {

/// Bytes of a value of a fixed width; 0 for a value with a length word, nothing for a type that does not exist.
std::optional<size_t> widthOf(uint16_t type) {
    switch (static_cast<Type>(type)) {
        case Type::Int64:
        case Type::UInt64:
        case Type::Double:
            return 8;
        case Type::Int32:
        case Type::UInt32:
        case Type::Float:
            return 4;
        case Type::Int16:
        case Type::UInt16:
            return 2;
        case Type::Int8:
        case Type::UInt8:
        case Type::Bool:
            return 1;
        default:
            break;
    }
    const bool counted =
        type == static_cast<uint16_t>(Type::String) || type == static_cast<uint16_t>(Type::Blob) ||
        (type >= static_cast<uint16_t>(Type::ArrayInt64) && type <= static_cast<uint16_t>(Type::ArrayFloat));
    return counted ? std::optional<size_t>(0) : std::nullopt;
}

template <typename T>
std::string bytesOf(T value) {
    std::string bytes(sizeof(value), '\0');
    std::memcpy(bytes.data(), &value, sizeof(value));
    return bytes;
}

/// Takes values off the front of a byte string.
class Reader {
public:
    explicit Reader(const std::string& bytes) : mBytes(bytes) {}

    [[nodiscard]] size_t left() const { return mBytes.size() - mAt; }

    std::optional<std::string> take(size_t size) {
        if (size > left()) {
            return std::nullopt;
        }
        mAt += size;
        return mBytes.substr(mAt - size, size);
    }

    template <typename T>
    std::optional<T> number() {
        const std::optional<std::string> bytes = take(sizeof(T));
        if (!bytes.has_value()) {
            return std::nullopt;
        }
        T value;
        std::memcpy(&value, bytes->data(), sizeof(value));
        return value;
    }

private:
    const std::string& mBytes;
    size_t mAt = 0;
};

std::optional<std::string> takeValue(Reader& reader, uint16_t type) {
    if (type == static_cast<uint16_t>(Type::Card)) {
        const auto size = reader.number<uint32_t>();
        auto rest = size.has_value() ? reader.take(*size) : std::nullopt;
        return rest.has_value() ? std::optional(bytesOf(*size) + *rest) : std::nullopt;
    }
    const std::optional<size_t> width = widthOf(type);
    if (!width.has_value()) {
        return std::nullopt;
    }
    if (*width > 0) {
        return reader.take(*width);
    }
    const auto size = reader.number<uint32_t>();
    auto value = size.has_value() ? reader.take(*size) : std::nullopt;
    if (value.has_value() && type == static_cast<uint16_t>(Type::String)) {
        if (value->empty() || value->back() != '\0') {
            return std::nullopt;
        }
        value->pop_back();
    }
    return value;
}

}  // namespace

Card& Card::add(const std::string& name, Type type, std::string value) {
    mFields.push_back({name, type, std::move(value)});
    return *this;
}

Card& Card::int32(const std::string& name, int32_t value) {
    return add(name, Type::Int32, bytesOf(value));
}

Card& Card::boolean(const std::string& name, bool value) {
    return add(name, Type::Bool, std::string(1, value ? '\1' : '\0'));
}

std::string Card::encode() const {
    std::string body;
    for (const Field& field : mFields) {
        const auto type = static_cast<uint16_t>(field.type);
        std::string value = field.value;
        if (field.type == Type::String) {
            value.push_back('\0');
        }
        body += bytesOf(type) + bytesOf(static_cast<uint16_t>(field.name.size() + 1)) + field.name + '\0';
        if (field.type != Type::Card && widthOf(type).value_or(1) == 0) {
            body += bytesOf(static_cast<uint32_t>(value.size()));
        }
        body += value;
    }
    body.push_back('\0');
    return bytesOf(static_cast<uint32_t>(body.size())) + body;
}

std::optional<Card> Card::decode(const std::string& bytes) {
    Reader reader(bytes);
    const auto size = reader.number<uint32_t>();
    if (!size.has_value() || *size != reader.left() || *size < 1 || bytes.back() != '\0') {
        return std::nullopt;
    }
    Card card;
    while (reader.left() > 1) {
        const auto type = reader.number<uint16_t>();
        const auto name_size = reader.number<uint16_t>();
        auto name = name_size.has_value() ? reader.take(*name_size) : std::nullopt;
        if (!name.has_value() || name->size() < 2 || name->find('\0') != name->size() - 1) {
            return std::nullopt;
        }
        name->pop_back();
        auto value = takeValue(reader, *type);
        if (!value.has_value()) {
            return std::nullopt;
        }
        card.add(*name, static_cast<Type>(*type), std::move(*value));
    }
    return reader.left() == 1 ? std::optional(card) : std::nullopt;
}

const Field* Card::find(const std::string& name) const {
    for (const Field& field : mFields) {
        if (field.name == name) {
            return &field;
        }
    }
    return nullptr;
}

std::optional<std::string> Card::value(const std::string& name, Type type) const {
    const Field* field = find(name);
    return field != nullptr && field->type == type ? std::optional(field->value) : std::nullopt;
}

std::vector<std::string> Card::names() const {
    std::vector<std::string> names;
    for (const Field& field : mFields) {
        names.push_back(field.name);
    }
    return names;
}

std::optional<std::string> Card::getString(const std::string& name) const {
    return value(name, Type::String);
}

std::optional<std::string> Card::getBlob(const std::string& name) const {
    return value(name, Type::Blob);
}

std::optional<int32_t> Card::getInt32(const std::string& name) const {
    const std::optional<std::string> bytes = value(name, Type::Int32);
    return bytes.has_value() ? Reader(*bytes).number<int32_t>() : std::nullopt;
}

std::optional<bool> Card::getBool(const std::string& name) const {
    const std::optional<std::string> bytes = value(name, Type::Bool);
    return bytes.has_value() ? std::optional(bytes->front() != '\0') : std::nullopt;
}

std::optional<Card> Card::getCard(const std::string& name) const {
    const std::optional<std::string> bytes = value(name, Type::Card);
    return bytes.has_value() ? decode(*bytes) : std::nullopt;
}

std::string Card::describe() const {
    constexpr size_t kLongest = 100;
    std::string text;
    for (const Field& field : mFields) {
        std::string shown = field.value;
        if (field.type == Type::Int32) {
            shown = std::to_string(*Reader(field.value).number<int32_t>());
        } else if (field.type == Type::Bool) {
            shown = field.value.front() != '\0' ? "true" : "false";
        } else if (field.type == Type::Card) {
            const std::optional<Card> inner = decode(field.value);
            shown = "{" + (inner.has_value() ? inner->describe() : "damaged") + "}";
        } else if (field.type != Type::String) {
            shown = "(" + std::to_string(field.value.size()) + " bytes)";
        }
        if (shown.size() > kLongest) {
            shown = shown.substr(0, kLongest) + "...";
        }
        text += (text.empty() ? "" : " | ") + field.name + " " + shown;
    }
    return text;
}

void PrintTo(const Card& card, std::ostream* out) {
    *out << card.describe();
}

}  // namespace test_support
