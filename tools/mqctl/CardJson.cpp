#include "CardJson.h"

#include <cmath>
#include <cstdint>
#include <limits>
#include <sstream>

#include "CardValue.h"
#include "Files.h"
#include "Text.h"

namespace mqctl {

namespace {

/// Integers beyond it are not safe as JSON numbers: many readers keep numbers as doubles.
constexpr uint64_t kLargestSafeInteger = 1ULL << 53;
constexpr int kMaxDepth = 64;

constexpr const char* kFields = "fields";
constexpr const char* kName = "name";
constexpr const char* kNameBase64 = "name_base64";
constexpr const char* kType = "type";
constexpr const char* kValue = "value";
constexpr const char* kBase64 = "base64";
constexpr const char* kSize = "size";
constexpr const char* kFile = "file";

Json elementToJson(const FieldType& type, const char* bytes) {
    if (type.kind == Kind::kFloating) {
        const double value = floatingAt(type, bytes);
        return std::isfinite(value) ? Json(value) : Json(toText(type, bytes));
    }
    const uint64_t bits = integerAt(type, bytes);
    if (type.kind == Kind::kBool && bits <= 1) {
        return bits == 1;
    }
    const bool negative = type.kind == Kind::kSigned && static_cast<int64_t>(bits) < 0;
    if ((negative ? 0 - bits : bits) > kLargestSafeInteger) {
        return toText(type, bytes);
    }
    return negative ? Json(static_cast<int64_t>(bits)) : Json(bits);
}

Json fieldsToJson(const Fields& fields);

Json fieldToJson(const Field& field) {
    Json result = Json::object();
    if (isUtf8(field.name)) {
        result[kName] = field.name;
    } else {
        result[kNameBase64] = toBase64(field.name);
    }
    const FieldType& type = *field.type;
    result[kType] = type.name;
    const std::string& value = field.value;
    if (type.kind == Kind::kCard) {
        result[kFields] = fieldsToJson(field.fields);
    } else if (type.kind == Kind::kString && !value.empty() && value.back() == '\0' && isUtf8(value)) {
        result[kValue] = value.substr(0, value.size() - 1);
    } else if (type.width == 0 || (type.array && value.size() % type.width != 0)) {
        // Blobs, and what no reader takes: text that is not UTF-8 or without its zero, half an element.
        result[kBase64] = toBase64(value);
        result[kSize] = value.size();
    } else if (type.array) {
        Json elements = Json::array();
        for (size_t at = 0; at < value.size(); at += type.width) {
            elements.push_back(elementToJson(type, value.data() + at));
        }
        result[kValue] = std::move(elements);
    } else {
        result[kValue] = elementToJson(type, value.data());
    }
    return result;
}

Json fieldsToJson(const Fields& fields) {
    Json result = Json::array();
    for (const Field& field : fields) {
        result.push_back(fieldToJson(field));
    }
    return result;
}

/// Reads the fields of a card; every failure names its place, as in "fields[2].fields[0]".
class Reader {
public:
    explicit Reader(std::string* why) : mWhy(why) {}

    bool readFields(const Json& card, const std::string& path, int depth, Fields* fields) {
        if (!card.is_object() || !card.contains(kFields) || !card[kFields].is_array()) {
            return fail(path, "an object with an array \"fields\" is wanted");
        }
        if (depth > kMaxDepth) {
            return fail(path, "cards nested too deep");
        }
        const Json& list = card[kFields];
        for (size_t i = 0; i < list.size(); ++i) {
            Field field;
            if (!readField(list[i], path + "fields[" + std::to_string(i) + "]", depth, &field)) {
                return false;
            }
            fields->push_back(std::move(field));
        }
        return true;
    }

private:
    bool readField(const Json& json, const std::string& path, int depth, Field* field) {
        if (!json.is_object()) {
            return fail(path, "not an object");
        }
        for (const auto& [key, unused] : json.items()) {
            if (key != kName && key != kNameBase64 && key != kType && key != kValue && key != kBase64 && key != kSize &&
                key != kFile && key != kFields) {
                return fail(path, "there is no key \"" + key + "\"");
            }
        }
        if (!readName(json, &field->name)) {
            return fail(path, "a \"name\" of 1 to 255 characters is wanted");
        }
        field->type = json.contains(kType) && json[kType].is_string()
                          ? findFieldType(std::string_view(json[kType].get_ref<const std::string&>()))
                          : nullptr;
        if (field->type == nullptr) {
            return fail(path,
                        "a \"type\" is wanted: card, string, blob, bool, int8 to uint64, float, double, or an "
                        "array like int32[]");
        }
        if (field->type->kind == Kind::kCard) {
            return readFields(json, path + ".", depth + 1, &field->fields);
        }
        return readValue(json, path, field);
    }

    static bool readName(const Json& json, std::string* name) {
        const char* key = json.contains(kName) ? kName : kNameBase64;
        if (!json.contains(key) || !json[key].is_string()) {
            return false;
        }
        *name = json[key].get<std::string>();
        if (key == kNameBase64) {
            *name = fromBase64(*name).value_or("");
        }
        return isFieldName(*name);
    }

    bool readValue(const Json& json, const std::string& path, Field* field) {
        const FieldType& type = *field->type;
        if (json.contains(kBase64) && (type.width == 0 || type.array)) {
            std::optional<std::string> bytes =
                json[kBase64].is_string() ? fromBase64(json[kBase64].get_ref<const std::string&>()) : std::nullopt;
            if (!bytes.has_value()) {
                return fail(path, "\"base64\" is no base64");
            }
            field->value = std::move(*bytes);
            return true;
        }
        if (type.kind == Kind::kBlob) {
            return readBlobFile(json, path, field);
        }
        if (!json.contains(kValue)) {
            return fail(path, "a \"value\" is wanted");
        }
        const Json& value = json[kValue];
        if (type.kind == Kind::kString) {
            if (!value.is_string()) {
                return fail(path, "the \"value\" is no text");
            }
            field->value = value.get<std::string>();
            field->value.push_back('\0');
            return true;
        }
        if (!type.array) {
            return readElement(type, value, &field->value) || fail(path, badValue(value, type));
        }
        if (!value.is_array()) {
            return fail(path, "the \"value\" of an array is an array");
        }
        for (const Json& element : value) {
            if (!readElement(type, element, &field->value)) {
                return fail(path, badValue(element, type));
            }
        }
        return true;
    }

    bool readBlobFile(const Json& json, const std::string& path, Field* field) {
        if (!json.contains(kFile) || !json[kFile].is_string()) {
            return fail(path, "a blob needs \"base64\", or \"file\" with a path");
        }
        std::string error;
        return readWholeFile(json[kFile].get<std::string>(), &field->value, &error) || fail(path, error);
    }

    static bool readElement(const FieldType& type, const Json& json, std::string* bytes) {
        if (json.is_string()) {
            return appendFromText(type, json.get_ref<const std::string&>(), bytes);
        }
        if (type.kind == Kind::kFloating) {
            return json.is_number() && appendFloating(type, json.get<double>(), bytes);
        }
        if (type.kind == Kind::kBool && json.is_boolean()) {
            bytes->push_back(json.get<bool>() ? '\1' : '\0');
            return true;
        }
        if (json.is_number_unsigned()) {
            return appendInteger(type, false, json.get<uint64_t>(), bytes);
        }
        if (!json.is_number_integer()) {
            return false;
        }
        const int64_t number = json.get<int64_t>();
        const uint64_t bits = static_cast<uint64_t>(number);
        return appendInteger(type, number < 0, number < 0 ? 0 - bits : bits, bytes);
    }

    static std::string badValue(const Json& value, const FieldType& type) {
        const std::string element = std::string(type.name).substr(0, std::string_view(type.name).find('['));
        // An array in arrays may be deeper than dump(), which calls itself for each level, can go.
        return (value.is_structured() ? std::string("an ") + value.type_name() : value.dump()) + " is no " + element;
    }

    bool fail(const std::string& path, const std::string& reason) {
        const bool dot = !path.empty() && path.back() == '.';
        const std::string place = dot ? path.substr(0, path.size() - 1) : path;
        *mWhy = place.empty() ? reason : place + ": " + reason;
        return false;
    }

    std::string* const mWhy;
};

}  // namespace

Json cardToJson(const Fields& fields) {
    Json card = Json::object();
    card[kFields] = fieldsToJson(fields);
    return card;
}

std::optional<Fields> cardFromJson(const Json& card, std::string* why) {
    Fields fields;
    return Reader(why).readFields(card, "", 1, &fields) ? std::optional(std::move(fields)) : std::nullopt;
}

bool cardsFromText(const std::string& text, std::string* bytes, std::string* why) {
    std::istringstream stream(text);
    for (int number = 1; number == 1 || !(stream >> std::ws).eof(); ++number) {
        Json json;
        try {
            stream >> json;
        } catch (const Json::exception&) {
            std::string place;
            (void)parseJson(text, &place);  // says where
            *why = number == 1 ? place : "card " + std::to_string(number) + " is no JSON";
            return false;
        }
        const std::optional<Fields> fields = cardFromJson(json, why);
        if (!fields.has_value()) {
            *why = (number > 1 ? "card " + std::to_string(number) + ": " : "") + *why;
            return false;
        }
        *bytes += encodeCard(*fields);
    }
    return true;
}

std::optional<Json> parseJson(const std::string& text, std::string* why) {
    try {
        return Json::parse(text);
    } catch (const Json::exception& error) {
        *why = error.what();
        // "[json.exception.parse_error.101] parse error at line 1, column 2: ..." says it in a stranger's words.
        if (const size_t end = why->find("] "); end != std::string::npos) {
            why->erase(0, end + 2);
        }
        return std::nullopt;
    }
}

}  // namespace mqctl
