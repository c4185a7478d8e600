#include "CardBytes.h"

#include <cstring>

#include "postcard/FieldType.h"

namespace mqctl {

namespace {

using namespace zv_loc_fw;

constexpr FieldType kTypes[] = {
    {FT_CARD, "card", Kind::kCard, 0, false},
    {FT_INT64, "int64", Kind::kSigned, 8, false},
    {FT_UINT64, "uint64", Kind::kUnsigned, 8, false},
    {FT_INT32, "int32", Kind::kSigned, 4, false},
    {FT_UINT32, "uint32", Kind::kUnsigned, 4, false},
    {FT_INT16, "int16", Kind::kSigned, 2, false},
    {FT_UINT16, "uint16", Kind::kUnsigned, 2, false},
    {FT_INT8, "int8", Kind::kSigned, 1, false},
    {FT_UINT8, "uint8", Kind::kUnsigned, 1, false},
    {FT_BOOL, "bool", Kind::kBool, 1, false},
    {FT_STRING, "string", Kind::kString, 0, false},
    {FT_BLOB, "blob", Kind::kBlob, 0, false},
    {FT_DOUBLE, "double", Kind::kFloating, 8, false},
    {FT_FLOAT, "float", Kind::kFloating, 4, false},
    {FT_ARRAY_INT64, "int64[]", Kind::kSigned, 8, true},
    {FT_ARRAY_UINT64, "uint64[]", Kind::kUnsigned, 8, true},
    {FT_ARRAY_INT32, "int32[]", Kind::kSigned, 4, true},
    {FT_ARRAY_UINT32, "uint32[]", Kind::kUnsigned, 4, true},
    {FT_ARRAY_INT16, "int16[]", Kind::kSigned, 2, true},
    {FT_ARRAY_UINT16, "uint16[]", Kind::kUnsigned, 2, true},
    {FT_ARRAY_INT8, "int8[]", Kind::kSigned, 1, true},
    {FT_ARRAY_UINT8, "uint8[]", Kind::kUnsigned, 1, true},
    {FT_ARRAY_BOOL, "bool[]", Kind::kBool, 1, true},
    {FT_ARRAY_DOUBLE, "double[]", Kind::kFloating, 8, true},
    {FT_ARRAY_FLOAT, "float[]", Kind::kFloating, 4, true},
};

constexpr size_t kHeaderSize = 4;
constexpr size_t kMaxNameLength = 255;
/// Each level of cards in cards is a level of calls.
constexpr int kMaxDepth = 64;

class Parser {
public:
    Parser(std::string_view bytes, Malformed* why) : mBytes(bytes), mWhy(why) {}

    /// @param end how far the card may reach
    /// @return where it ends; 0 when malformed
    size_t card(size_t begin, size_t end, int depth, Fields* fields) {
        uint32_t length = 0;
        if (!read(begin, end, &length)) {
            return fail(begin, "the card's length is cut off");
        }
        if (length == 0) {
            return fail(begin, "a card of 0 bytes has no end byte");
        }
        if (length > end - begin - kHeaderSize) {
            return fail(begin, "the card wants " + std::to_string(length) + " bytes, but only " +
                                   std::to_string(end - begin - kHeaderSize) + " follow");
        }
        end = begin + kHeaderSize + length;
        size_t at = begin + kHeaderSize;
        while (end - at > 1) {
            at = field(at, end, depth, fields);
            if (at == 0) {
                return 0;
            }
        }
        if (at == end) {
            return fail(at, "the last field leaves no room for the end byte");
        }
        return mBytes[at] == '\0' ? end : fail(at, "the end byte is not 0");
    }

private:
    /// @return where the next one begins; 0 when malformed
    size_t field(size_t at, size_t end, int depth, Fields* fields) {
        uint16_t code = 0;
        uint16_t name_size = 0;
        if (!read(at, end, &code)) {
            return fail(at, "the type is cut off");
        }
        Field field;
        field.type = findFieldType(code);
        if (field.type == nullptr) {
            return fail(at, "there is no type " + std::to_string(code));
        }
        at += sizeof(code);
        if (!read(at, end, &name_size)) {
            return fail(at, "the name's length is cut off");
        }
        const size_t name_at = at + sizeof(name_size);
        if (name_size < 2 || name_size > kMaxNameLength + 1) {
            return fail(at, "a name of " + std::to_string(name_size) + " bytes (2 to 256 with its zero)");
        }
        if (name_size > end - name_at) {
            return fail(name_at, "the name is cut off");
        }
        field.name = mBytes.substr(name_at, name_size - size_t{1});
        if (mBytes[name_at + field.name.size()] != '\0' || !isFieldName(field.name)) {
            return fail(name_at, "the name's zero is not at its end");
        }
        at = value(name_at + name_size, end, depth, &field);
        if (at != 0 || !field.fields.empty()) {
            fields->push_back(std::move(field));
        }
        return at;
    }

    size_t value(size_t at, size_t end, int depth, Field* field) {
        if (field->type->kind == Kind::kCard) {
            return depth < kMaxDepth ? card(at, end, depth + 1, &field->fields)
                                     : fail(at, "cards nested more than " + std::to_string(kMaxDepth) + " deep");
        }
        uint32_t length = field->type->width;
        if (field->type->array || length == 0) {
            if (!read(at, end, &length)) {
                return fail(at, "the value's length is cut off");
            }
            at += sizeof(length);
        }
        if (length > end - at) {
            return fail(at, "the value wants " + std::to_string(length) + " bytes, but only " +
                                std::to_string(end - at) + " follow");
        }
        field->value = mBytes.substr(at, length);
        return at + length;
    }

    template <typename T>
    bool read(size_t at, size_t end, T* value) {
        if (end - at < sizeof(T)) {
            return false;
        }
        std::memcpy(value, mBytes.data() + at, sizeof(T));
        return true;
    }

    size_t fail(size_t at, std::string reason) {
        *mWhy = {at, std::move(reason)};
        return 0;
    }

    const std::string_view mBytes;
    Malformed* const mWhy;
};

template <typename T>
void append(std::string* bytes, size_t value) {
    const T number = static_cast<T>(value);
    bytes->append(reinterpret_cast<const char*>(&number), sizeof(number));
}

void appendCard(std::string* bytes, const Fields& fields) {
    const size_t begin = bytes->size();
    append<uint32_t>(bytes, 0);
    for (const Field& field : fields) {
        append<uint16_t>(bytes, field.type->code);
        append<uint16_t>(bytes, field.name.size() + 1);
        bytes->append(field.name.c_str(), field.name.size() + 1);
        if (field.type->kind == Kind::kCard) {
            appendCard(bytes, field.fields);
            continue;
        }
        if (field.type->array || field.type->width == 0) {
            append<uint32_t>(bytes, field.value.size());
        }
        bytes->append(field.value);
    }
    bytes->push_back('\0');
    const uint32_t length = static_cast<uint32_t>(bytes->size() - begin - kHeaderSize);
    std::memcpy(bytes->data() + begin, &length, sizeof(length));
}

}  // namespace

const FieldType* findFieldType(uint16_t code) {
    for (const FieldType& type : kTypes) {
        if (type.code == code) {
            return &type;
        }
    }
    return nullptr;
}

const FieldType* findFieldType(std::string_view name) {
    for (const FieldType& type : kTypes) {
        if (type.name == name) {
            return &type;
        }
    }
    return nullptr;
}

std::optional<size_t> parseCard(std::string_view bytes, size_t begin, Fields* fields, Malformed* why) {
    const size_t end = Parser(bytes, why).card(begin, bytes.size(), 1, fields);
    return end != 0 ? std::optional(end) : std::nullopt;
}

std::string encodeCard(const Fields& fields) {
    std::string bytes;
    appendCard(&bytes, fields);
    return bytes;
}

bool isFieldName(std::string_view name) {
    return !name.empty() && name.size() <= kMaxNameLength && name.find('\0') == std::string_view::npos;
}

}  // namespace mqctl
