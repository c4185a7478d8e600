#include "support/Card.h"

#include <algorithm>
#include <cstring>
#include <ostream>

namespace test_support {
namespace {

template <typename T>
std::string bytesOf(T value) {
    std::string bytes(sizeof(value), '\0');
    std::memcpy(bytes.data(), &value, sizeof(value));
    return bytes;
}

/// Takes bytes off the front; once there are too few, nothing comes any more.
class Reader {
public:
    explicit Reader(const std::string& bytes) : mBytes(bytes) {}

    [[nodiscard]] bool good() const { return mGood; }
    [[nodiscard]] size_t left() const { return mBytes.size() - mAt; }

    std::string take(size_t size) {
        mGood = mGood && size <= left();
        mAt += mGood ? size : 0;
        return mGood ? mBytes.substr(mAt - size, size) : "";
    }
    template <typename T>
    T number() {
        T value{};
        const std::string bytes = take(sizeof(T));
        std::memcpy(&value, bytes.data(), bytes.size());
        return value;
    }
    /// A text with a final zero, which is taken off.
    std::string text(size_t size) {
        std::string text = take(size);
        mGood = mGood && text.find('\0') + 1 == text.size() && size > 0;
        text.resize(text.empty() ? 0 : text.size() - 1);
        return text;
    }
    std::string value(Type type) {
        switch (type) {
            case Type::Int64:
            case Type::UInt64:
            case Type::Double:
                return take(8);
            case Type::Int32:
            case Type::UInt32:
            case Type::Float:
                return take(4);
            case Type::Int16:
            case Type::UInt16:
                return take(2);
            case Type::Int8:
            case Type::UInt8:
            case Type::Bool:
                return take(1);
            case Type::Card: {
                const auto size = number<uint32_t>();
                return bytesOf(size) + take(size);
            }
            case Type::String:
                return text(number<uint32_t>());
            default:
                mGood = mGood && (type == Type::Blob || (type >= Type::ArrayInt64 && type <= Type::ArrayFloat));
                return take(number<uint32_t>());
        }
    }

private:
    const std::string& mBytes;
    size_t mAt = 0;
    bool mGood = true;
};

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
        body += bytesOf(field.type) + bytesOf(static_cast<uint16_t>(field.name.size() + 1)) + field.name + '\0';
        const size_t end = field.type == Type::String ? 1 : 0;
        if (end == 1 || field.type == Type::Blob || field.type >= Type::ArrayInt64) {
            body += bytesOf(static_cast<uint32_t>(field.value.size() + end));
        }
        body += field.value + std::string(end, '\0');
    }
    return bytesOf(static_cast<uint32_t>(body.size() + 1)) + body + '\0';
}

std::optional<Card> Card::decode(const std::string& bytes) {
    Reader reader(bytes);
    Card card;
    const auto size = reader.number<uint32_t>();
    bool good = size == reader.left() && size > 0 && bytes.back() == '\0';
    while (good && reader.left() > 1) {
        const auto type = reader.number<Type>();
        const std::string name = reader.text(reader.number<uint16_t>());
        card.add(name, type, reader.value(type));
        good = reader.good() && !name.empty();
    }
    return good && reader.left() == 1 ? std::optional(card) : std::nullopt;
}

std::optional<std::string> Card::value(const std::string& name, Type type) const {
    for (const Field& field : mFields) {
        if (field.name == name) {
            return field.type == type ? std::optional(field.value) : std::nullopt;
        }
    }
    return std::nullopt;
}

std::vector<std::string> Card::names() const {
    std::vector<std::string> names;
    for (const Field& field : mFields) {
        names.push_back(field.name);
    }
    return names;
}

bool Card::has(const std::string& name) const {
    return std::any_of(mFields.begin(), mFields.end(), [&](const Field& field) { return field.name == name; });
}

std::optional<int32_t> Card::getInt32(const std::string& name) const {
    const auto bytes = value(name, Type::Int32);
    return bytes.has_value() ? std::optional(Reader(*bytes).number<int32_t>()) : std::nullopt;
}

std::optional<Card> Card::getCard(const std::string& name) const {
    const auto bytes = value(name, Type::Card);
    return bytes.has_value() ? decode(*bytes) : std::nullopt;
}

std::string Card::describe() const {
    constexpr size_t kLongest = 100;
    std::string text;
    for (const Field& field : mFields) {
        std::string shown = "(" + std::to_string(field.value.size()) + " bytes)";
        if (field.type == Type::Int32) {
            shown = std::to_string(Reader(field.value).number<int32_t>());
        } else if (field.type == Type::Bool) {
            shown = field.value == std::string(1, '\0') ? "false" : "true";
        } else if (field.type == Type::Card) {
            shown = "{" + decode(field.value).value_or(Card().string("damaged", "")).describe() + "}";
        } else if (field.type == Type::String) {
            shown = field.value.substr(0, kLongest);
        }
        text += (text.empty() ? "" : " | ") + field.name + " " + shown;
    }
    return text;
}

void PrintTo(const Card& card, std::ostream* out) {
    *out << card.describe();
}

}  // namespace test_support
