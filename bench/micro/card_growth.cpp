// Cards with more and more fields. A lookup walks from the start, so the last field costs the way to it, and reading
// all of them by name the sum of all ways.

#include <memory>
#include <string>
#include <vector>

#include "harness/harness.h"
#include "postcard/InPostcard.h"
#include "postcard/OutPostcard.h"

namespace bench {

namespace {

using zv_loc_fw::InPostcard;
using zv_loc_fw::OutPostcard;
using Names = std::vector<std::string>;

Names namesOf(std::size_t fields) {
    Names names;
    for (std::size_t i = 0; i < fields; ++i) {
        names.push_back("FIELD-" + std::to_string(1000 + i));
    }
    return names;
}

std::unique_ptr<OutPostcard> cardOf(const Names& names) {
    std::unique_ptr<OutPostcard> card(OutPostcard::createInstance());
    require(card != nullptr && card->init() == 0);
    for (const std::string& name : names) {
        require(card->addInt32(name.c_str(), 7) == 0);
    }
    require(card->finalize() == 0);
    return card;
}

Loop encoding(std::size_t fields) {
    return [names = namesOf(fields)](std::size_t n) {
        for (; n > 0; --n) {
            keep(cardOf(names)->getInternalBuffer()->getBuffer());
        }
    };
}

Loop reading(std::size_t fields, std::size_t first) {
    const Names names = namesOf(fields);
    std::shared_ptr<OutPostcard> card = cardOf(names);
    return [names, card, first](std::size_t n) {
        const zv_loc_fw::MemoryStreamBase* bytes = card->getInternalBuffer();
        for (; n > 0; --n) {
            const std::unique_ptr<InPostcard> reader(InPostcard::createInstance());
            require(reader->init(bytes->getBuffer(), bytes->getSize(), false) == 0);
            for (std::size_t i = first; i < names.size(); ++i) {
                std::int32_t value = 0;
                require(reader->getInt32(names[i].c_str(), value) == 0 && value == 7);
            }
        }
    };
}

const bool kRegistered = [] {
    for (const std::size_t fields : {1U, 10U, 50U, 100U, 500U}) {
        Register(Row{"growth/card-encode", kOurs, [fields] { return encoding(fields); }, fields});
        Register(Row{"growth/card-read-last", kOurs, [fields] { return reading(fields, fields - 1); }, fields});
        Register(Row{"growth/card-read-all", kOurs, [fields] { return reading(fields, 0); }, fields});
    }
    return true;
}();

}  // namespace

}  // namespace bench
