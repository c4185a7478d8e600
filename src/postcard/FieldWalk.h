#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "base/text.h"
#include "postcard/FieldTable.h"
#include "postcard/InPostcard.h"

namespace zv_loc_fw {

/// Steps through the fields of an encoded card. Silent, and reads nothing outside the bytes given, whatever they hold.
/// The result codes are those of the lookup. Where bytes were wanted that are not there, `refused` is set and `wanted`
/// bytes at `at` are what a stream over the same bytes would refuse as well.
class FieldWalk {
public:
    /// What findPlainly() found.
    struct Found {
        const char* value = nullptr;  ///< there as a whole, behind its length word if it has one; null: no such field
        size_t size = 0;              ///< the value's, or where the fields end; 0: something is out of order
    };

    /// Looks for the first field of that type and name, in one pass over an undamaged card. When anything is out of
    /// order it does not say what: a walk step by step does.
    [[gnu::always_inline]] static Found findPlainly(const char* card, size_t size, eFieldType wanted_type,
                                                    const char* wanted_name) {
        const size_t length = std::strlen(wanted_name);
        if (card == nullptr || size < sizeof(uint32_t) || length == 0 || length >= UINT16_MAX) {
            return {};
        }
        const size_t told_end = size_t{load<uint32_t>(card)} + sizeof(uint32_t);
        const size_t end = std::min(size, told_end);
        const size_t last_word = end - sizeof(uint32_t);
        const auto wanted = std::bit_cast<uint32_t>(Head{wanted_type, static_cast<uint16_t>(length + 1)});
        size_t at = sizeof(uint32_t);
        while (at <= last_word) {
            const auto bits = load<uint32_t>(card + at);
            const Head head = std::bit_cast<Head>(bits);
            const size_t value = at + sizeof(Head) + head.name_size;
            if (bits == wanted && value <= end && sameShort(card + at + sizeof(Head), wanted_name, length))
                [[unlikely]] {
                return wholeValue(card, end, value, wanted_type);
            }
            if (head.name_size == 0) [[unlikely]] {
                return {};
            }
            // The commonest types by branches: those are foreseen, and the way on does not wait for the table.
            if (head.type == FT_STRING && value <= last_word) {
                const auto word = load<uint32_t>(card + value);
                if (word == 0) [[unlikely]] {
                    return {};
                }
                at = value + sizeof(word) + word;
            } else if (head.type == FT_INT32) {
                at = value + sizeof(int32_t);
            } else {
                const Found other = wholeValue(card, end, value, head.type);
                if (other.size == 0) {
                    return {};
                }
                at = static_cast<size_t>(other.value - card) + other.size;
            }
        }
        // Nothing is left but the end byte, which is not looked at.
        return at + 1 == told_end && at <= size ? Found{nullptr, at} : Found{};
    }

    FieldWalk() = default;
    FieldWalk(const void* bytes, size_t size)
        : mBytes(static_cast<const char*>(bytes)), mSize(bytes != nullptr ? size : 0) {}

    /// Reads the card's header. @return 0; 4 unreadable
    int begin() {
        uint32_t header = 0;
        if (!read(header)) {
            return 4;  // header
        }
        mEnd = size_t{header} + sizeof(header);
        return 0;
    }

    /// Reads type and name of the next field; `at` is then its value.
    /// @return 0; kFieldAbsent at the end byte; 101 beyond the header's end; 102 type,
    /// 103 name length, 104 name cut off
    int next() {
        if (at >= mEnd) {
            return 101;  // the header does not agree with the fields
        }
        if (mEnd - at == 1) {
            return kFieldAbsent;
        }
        if (!read(type)) {
            return 102;  // type
        }
        if (!read(name_size)) {
            return 103;  // name length
        }
        name = take(name_size);
        if (name == nullptr) {
            return 104;  // name
        }
        return 0;
    }

    /// Whether the field's name is this one. The terminating zero in the bytes is counted but not looked at.
    [[nodiscard]] bool nameIs(const char* wanted_name, size_t length) const {
        return size_t{name_size} == length + 1 && std::memcmp(name, wanted_name, length) == 0;
    }

    /// Steps over the value.
    /// @return 0; 3 cut off; 100 type 0; 101 no such type; strings and cards: 102
    /// length unreadable, 103 length 0; blobs
    ///         and arrays: 104 length unreadable, 2 length 0
    int skipValue() {
        const uint8_t width = type < kWidths.size() ? kWidths[type] : uint8_t{0};
        if (width == 0) {
            return type == 0 ? 100 : 101;  // no type; no such type
        }
        uint32_t length = width;
        if (width == kLengthWord) {
            const bool text_or_card = type == FT_STRING || type == FT_CARD;
            if (!read(length)) {
                return text_or_card ? 102 : 104;  // length word
            }
            if (length == 0) {
                return text_or_card ? 103 : 2;  // empty value
            }
        }
        return take(length) != nullptr ? 0 : 3;  // 3: value
    }

    /// The next n bytes; null when they are not there (no bytes wanted counts as not there).
    const char* take(size_t n) {
        if (n == 0 || n > mSize - at) {
            refused = true;
            wanted = n;
            return nullptr;
        }
        const char* taken = mBytes + at;
        at += n;
        return taken;
    }

    template <typename T>
    bool read(T& value) {
        const char* bytes = take(sizeof(T));
        if (bytes == nullptr) {
            return false;
        }
        std::memcpy(&value, bytes, sizeof(T));
        return true;
    }

    size_t at = 0;
    uint16_t type = 0;
    uint16_t name_size = 0;
    const char* name = nullptr;
    bool refused = false;
    size_t wanted = 0;

private:
    /// What a field begins with, its name behind it.
    struct Head {
        uint16_t type;
        uint16_t name_size;
    };

    template <typename T>
    static T load(const char* bytes) {
        T value{};
        std::memcpy(&value, bytes, sizeof(value));
        return value;
    }

    static Found wholeValue(const char* card, size_t end, size_t at, uint16_t type) {
        size_t size = type < kWidths.size() ? kWidths[type] : size_t{0};
        if (size == kLengthWord) {
            if (at + sizeof(uint32_t) > end) {
                return {};
            }
            size = load<uint32_t>(card + at);
            at += sizeof(uint32_t);
        }
        return size == 0 || at + size > end ? Found{} : Found{card + at, size};
    }

    static constexpr uint8_t kLengthWord = 0xFF;  // not a width: the value begins with a length word

    static constexpr std::array<uint8_t, FT_ARRAY_FLOAT + 1> kWidths = [] {
        std::array<uint8_t, FT_ARRAY_FLOAT + 1> widths{};
#define ZV_SET(Suffix, Type, Code) widths[Code] = sizeof(Type);
        ZV_POSTCARD_SIMPLE_TYPES(ZV_SET)
#undef ZV_SET
#define ZV_SET(Suffix, Type, Code) widths[Code] = kLengthWord;
        ZV_POSTCARD_ARRAY_TYPES(ZV_SET)
#undef ZV_SET
        // An inner card's header is its length word.
        widths[FT_CARD] = widths[FT_STRING] = widths[FT_BLOB] = kLengthWord;
        return widths;
    }();

    const char* mBytes = nullptr;
    size_t mSize = 0;
    size_t mEnd = 0;  // where the header says that the card ends; may lie outside the bytes
};

}  // namespace zv_loc_fw
