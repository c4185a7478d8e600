// JSON that becomes cards, and cards that become JSON: what comes out goes back in and gives the same bytes.

#include "CardJson.h"

#include <memory>
#include <string>

#include "CardBytes.h"
#include "CardText.h"
#include "Files.h"
#include "postcard/InPostcard.h"
#include "support/Input.h"

namespace mqctl {

/// Takes the place of the real one, so that no file of this machine is an input: a blob's "file" has this content.
bool readWholeFile(const std::string& path, std::string* content, std::string* error) {
    if (path.empty()) {
        *error = "no such file";
        return false;
    }
    *content = path + path;
    return true;
}

}  // namespace mqctl

namespace {

using namespace mqctl;

/// The agent's reader must find every field of a card that the tool takes, or say that it is not there.
void readAsAgent(const std::string& bytes) {
    const std::unique_ptr<zv_loc_fw::InPostcard> card(zv_loc_fw::InPostcard::createInstance());
    FUZZ_CHECK(card->init(bytes.data(), bytes.size(), false) == 0);
    const char* text = nullptr;
    (void)card->getString("A", &text);
}

/// @return the bytes again, by way of text
std::string throughJson(const Fields& fields) {
    const std::string text = cardToJson(fields).dump(2);
    std::string bytes;
    std::string why;
    FUZZ_CHECK(cardsFromText(text, &bytes, &why));
    return bytes;
}

/// @param bytes one card after another
void decode(const std::string& bytes, bool must_be_cards) {
    size_t begin = 0;
    while (begin < bytes.size()) {
        Fields fields;
        Malformed why;
        const std::optional<size_t> end = parseCard(bytes, begin, &fields, &why);
        FUZZ_CHECK(!cardToText(fields, 2).empty() || fields.empty());
        if (!end.has_value()) {
            FUZZ_CHECK(!must_be_cards && why.offset <= bytes.size() && !why.reason.empty());
            (void)throughJson(fields);
            return;
        }
        const std::string card = bytes.substr(begin, *end - begin);
        FUZZ_CHECK(encodeCard(fields) == card);
        FUZZ_CHECK(throughJson(fields) == card);
        readAsAgent(card);
        begin = *end;
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    fuzz::quietLog(0);
    return 0;
}

/// The input is JSON as "encode" reads it, and again bytes as "decode" does.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string input(reinterpret_cast<const char*>(data), size);
    std::string bytes;
    std::string why;
    if (cardsFromText(input, &bytes, &why)) {
        FUZZ_CHECK(!bytes.empty() && why.empty());
        decode(bytes, true);
    } else {
        FUZZ_CHECK(!why.empty());
    }
    decode(input, false);
    return 0;
}
