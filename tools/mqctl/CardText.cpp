#include "CardText.h"

#include <algorithm>

#include "CardValue.h"
#include "Text.h"

namespace mqctl {

namespace {

constexpr size_t kBlobBytes = 16;
constexpr size_t kTextBytes = 100;
constexpr size_t kElements = 16;

std::string plural(size_t count, const char* what) {
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

std::string quoted(std::string_view text) {
    std::string result = "\"";
    for (const char c : printable(text)) {
        result += c == '"' ? "\\\"" : std::string(1, c);
    }
    return result + '"';
}

/// The first bytes, no character cut in two.
std::string_view headOf(std::string_view text, size_t limit) {
    size_t size = std::min(text.size(), limit);
    while (size > 0 && size < text.size() && (static_cast<unsigned char>(text[size]) & 0xC0) == 0x80) {
        --size;
    }
    return text.substr(0, size);
}

std::string stringText(std::string_view value, size_t limit) {
    const bool ends = !value.empty() && value.back() == '\0';
    const std::string_view text = ends ? value.substr(0, value.size() - 1) : value;
    return quoted(headOf(text, limit)) + (text.size() > limit ? "..." : "") +
           (ends            ? ""
            : value.empty() ? " (no bytes at all)"
                            : " (without its zero)");
}

/// Whether it reads well as text, which most bodies do.
bool isPlainText(std::string_view bytes) {
    return isUtf8(bytes) && std::none_of(bytes.begin(), bytes.end(), [](char c) {
               const auto byte = static_cast<unsigned char>(c);
               return (byte < ' ' && c != '\n' && c != '\r' && c != '\t') || byte == 0x7F;
           });
}

std::string blobText(std::string_view value, size_t limit, size_t text_limit) {
    if (value.empty()) {
        return "empty (readers cannot scan past it)";
    }
    const bool text = isPlainText(value);
    const std::string_view begin = text ? headOf(value, text_limit) : value.substr(0, limit);
    return plural(value.size(), "byte") + " " + (text ? quoted(begin) : toHex(begin, " ")) +
           (begin.size() < value.size() ? " ..." : "");
}

std::string arrayText(const FieldType& type, std::string_view value, size_t limit) {
    if (value.empty()) {
        return "[] (readers cannot scan past it)";
    }
    if (value.size() % type.width != 0) {
        return plural(value.size(), "byte") + ", no whole number of elements";
    }
    std::string result = "[";
    for (size_t at = 0; at < value.size(); at += type.width) {
        if (at / type.width == limit) {
            return result + ", ...] " + plural(value.size() / type.width, "element");
        }
        result += (at > 0 ? ", " : "") + toText(type, value.data() + at);
    }
    return result + "]";
}

std::string valueText(const Field& field, bool whole) {
    const FieldType& type = *field.type;
    const auto limit = [whole](size_t cut) { return whole ? std::string::npos : cut; };
    switch (type.kind) {
        case Kind::kCard:
            return field.fields.empty() ? "empty" : plural(field.fields.size(), "field");
        case Kind::kString:
            return stringText(field.value, limit(kTextBytes));
        case Kind::kBlob:
            return blobText(field.value, limit(kBlobBytes), limit(kTextBytes));
        default:
            return type.array ? arrayText(type, field.value, limit(kElements)) : toText(type, field.value.data());
    }
}

}  // namespace

std::string valueToText(const Field& field) {
    return valueText(field, true);
}

std::string cardToText(const Fields& fields, size_t indent) {
    size_t name_width = 0;
    size_t type_width = 0;
    for (const Field& field : fields) {
        name_width = std::max(name_width, columnsOf(printable(field.name)));
        type_width = std::max(type_width, std::string_view(field.type->name).size());
    }
    std::string result;
    for (const Field& field : fields) {
        const std::string name = printable(field.name);
        const std::string type = field.type->name;
        result.append(indent, ' ').append(name).append(name_width - columnsOf(name) + 2, ' ');
        result.append(type).append(type_width - type.size() + 2, ' ').append(valueText(field, false)) += '\n';
        result += cardToText(field.fields, indent + 2);
    }
    return result;
}

std::string summaryOf(size_t size, const Fields& fields) {
    return plural(size, "byte") + ", " + plural(fields.size(), "field");
}

}  // namespace mqctl
