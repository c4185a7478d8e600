#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "CardBytes.h"

namespace mqctl {

/// Keeps the order of keys.
using Json = nlohmann::ordered_json;

/// {"fields": [{"name": ..., "type": ..., "value": ...}, ...]}. What JSON cannot hold has a form of its own
/// (docs/mqctl.md), so that cardFromJson() gives the same fields, byte for byte.
[[nodiscard]] Json cardToJson(const Fields& fields);

/// @param why out: what is wrong, and where, when nothing is returned
[[nodiscard]] std::optional<Fields> cardFromJson(const Json& card, std::string* why);

/// All cards of a text that holds one JSON object after another, appended to `bytes`.
/// @param why out: what is wrong, and where, when false is returned
[[nodiscard]] bool cardsFromText(const std::string& text, std::string* bytes, std::string* why);

/// The text as JSON that may be null.
[[nodiscard]] std::optional<Json> parseJson(const std::string& text, std::string* why);

}  // namespace mqctl
