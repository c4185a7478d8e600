#include "FieldArgs.h"

#include <algorithm>
#include <cstring>

#include "CardValue.h"
#include "Files.h"
#include "Text.h"
#include "inet/AgentProtocol.h"
#include "mq/Envelope.h"
#include "postcard/FieldType.h"

namespace mqctl {

namespace {

using namespace zv_loc_fw;

struct KnownField {
    const char* name;
    uint16_t type;
};

/// The fields of requests that are no text.
constexpr KnownField kKnownFields[] = {
    {envelope::kTxId, FT_INT32},
    {agent_protocol::kTimeoutSec, FT_INT32},
    {agent_protocol::kForceNewConnection, FT_BOOL},
    {agent_protocol::kPostData, FT_BLOB},
    {agent_protocol::kDataItems, FT_ARRAY_INT32},
};

const FieldType* usualType(const std::string& name) {
    for (const KnownField& known : kKnownFields) {
        if (name == known.name) {
            return findFieldType(known.type);
        }
    }
    return findFieldType(uint16_t{FT_STRING});
}

bool readBlob(const std::string& text, std::string* value, std::string* why) {
    constexpr std::string_view kHex = "hex:";
    if (!text.empty() && text[0] == '@') {
        return readWholeFile(text.substr(1), value, why);
    }
    if (text.compare(0, kHex.size(), kHex) != 0) {
        *value = text;
        return true;
    }
    std::optional<std::string> bytes = fromHex(std::string_view(text).substr(kHex.size()));
    if (!bytes.has_value()) {
        *why = "\"" + text + "\": pairs of hexadecimal digits are wanted";
        return false;
    }
    *value = std::move(*bytes);
    return true;
}

bool readElements(const FieldType& type, const std::string& text, std::string* value, std::string* why) {
    for (size_t at = 0; at <= text.size();) {
        const size_t comma = type.array ? std::min(text.find(',', at), text.size()) : text.size();
        const std::string element = text.substr(at, comma - at);
        if (!appendFromText(type, element, value)) {
            *why = "\"" + element + "\" is no value of type " + type.name;
            return false;
        }
        at = comma + 1;
    }
    return true;
}

bool readValue(const std::string& text, Field* field, std::string* why) {
    switch (field->type->kind) {
        case Kind::kCard:
            *why = "nested cards need --json-in";
            return false;
        case Kind::kString:
            field->value = text;
            field->value.push_back('\0');
            return true;
        case Kind::kBlob:
            return readBlob(text, &field->value, why);
        default:
            return readElements(*field->type, text, &field->value, why);
    }
}

Field fieldOf(const std::string& name, uint16_t type, std::string value) {
    return {name, findFieldType(type), std::move(value), {}};
}

}  // namespace

std::optional<Field> fieldFromArgument(const std::string& argument, std::string* why) {
    const size_t equals = argument.find('=');
    if (equals == std::string::npos) {
        *why = "\"" + argument + "\": KEY=TEXT or KEY:TYPE=VALUE is wanted";
        return std::nullopt;
    }
    const std::string key = argument.substr(0, equals);
    const size_t colon = key.rfind(':');
    Field field;
    field.name = key.substr(0, colon);
    field.type =
        colon == std::string::npos ? usualType(field.name) : findFieldType(std::string_view(key).substr(colon + 1));
    if (!isFieldName(field.name)) {
        *why = "\"" + argument + "\": a KEY of 1 to 255 characters is wanted";
        return std::nullopt;
    }
    if (field.type == nullptr) {
        *why = "\"" + argument + "\": there is no type \"" + key.substr(colon + 1) + "\"";
        return std::nullopt;
    }
    if (!readValue(argument.substr(equals + 1), &field, why)) {
        *why = key + ": " + *why;
        return std::nullopt;
    }
    return field;
}

Field stringField(const std::string& name, const std::string& value) {
    return fieldOf(name, FT_STRING, value + '\0');
}

Field int32Field(const std::string& name, int32_t value) {
    return fieldOf(name, FT_INT32, std::string(reinterpret_cast<const char*>(&value), sizeof(value)));
}

Field boolField(const std::string& name, bool value) {
    return fieldOf(name, FT_BOOL, std::string(1, value ? '\1' : '\0'));
}

Field cardField(const std::string& name, Fields fields) {
    return {name, findFieldType(uint16_t{FT_CARD}), "", std::move(fields)};
}

const Field* findField(const Fields& fields, const std::string& name) {
    for (const Field& field : fields) {
        if (field.name == name) {
            return &field;
        }
    }
    return nullptr;
}

std::string textOf(const Fields& fields, const std::string& name) {
    for (const Field& field : fields) {
        if (field.name == name && field.type->kind == Kind::kString) {
            return field.value.substr(0, field.value.find('\0'));
        }
    }
    return {};
}

std::optional<int32_t> int32Of(const Fields& fields, const std::string& name) {
    for (const Field& field : fields) {
        if (field.name == name && field.type->code == FT_INT32) {
            int32_t value = 0;
            std::memcpy(&value, field.value.data(), sizeof(value));
            return value;
        }
    }
    return std::nullopt;
}

}  // namespace mqctl
