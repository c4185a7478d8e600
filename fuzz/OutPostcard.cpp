// The writer: the bytes say which operations it is asked for. What it took must come back, field by field, from our own
// reader and from a second reading of the format that shares no code with it.

#include "postcard/OutPostcard.h"

#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include "postcard/InPostcard.h"
#include "support/Card.h"
#include "support/Input.h"

namespace {

using namespace zv_loc_fw;
using test_support::Card;
using test_support::Type;

constexpr size_t kMaxName = 300;

std::string nameFrom(fuzz::Input& input) {
    const auto kind = input.number<uint8_t>();
    if (kind < 250) {
        return std::string(1, static_cast<char>('A' + kind % 4));  // few names: they meet again
    }
    std::string name(input.bytes(input.number<uint16_t>() % kMaxName));
    if (kind > 252) {
        name.resize(kind == 253 ? 255 : 256, 'x');  // the longest, and one too long
    }
    return name.substr(0, name.find('\0'));
}

/// Writes a card, and the same fields into a Card.
class Writing {
public:
    explicit Writing(fuzz::Input& input) : mInput(input), mCard(OutPostcard::createInstance()) {
        FUZZ_CHECK(mCard->addInt32("A", 1) == 2);
        FUZZ_CHECK(mCard->init() == 0);
    }

    /// @return whether the card can be sent
    bool write(int depth) {
        const size_t operations = mInput.below(24);
        for (size_t i = 0; i < operations && !mInput.empty() && !mSpoilt; ++i) {
            operation(depth);
        }
        FUZZ_CHECK(mCard->finalize() == 0);
        FUZZ_CHECK(mCard->finalize() == 2 && mCard->addBool("A", true) == 2);
        return !mSpoilt;
    }

    [[nodiscard]] OutPostcard* card() const { return mCard.get(); }
    [[nodiscard]] const Card& model() const { return mModel; }

private:
    void operation(int depth) {
        const size_t kind = mInput.below(28);
        const std::string name = nameFrom(mInput);
        size_t next = 0;
#define FUZZ_ADD(Suffix, Type, Code)                                \
    if (kind == next++) {                                           \
        return simple<Type>(name, Code, &OutPostcard::add##Suffix); \
    }
        ZV_POSTCARD_SIMPLE_TYPES(FUZZ_ADD)
#undef FUZZ_ADD
#define FUZZ_ADD(Suffix, Type, Code)                                    \
    if (kind == next++) {                                               \
        return array<Type>(name, Code, &OutPostcard::addArray##Suffix); \
    }
        ZV_POSTCARD_ARRAY_TYPES(FUZZ_ADD)
#undef FUZZ_ADD
        switch (kind - next) {
            case 0:
                return text(name);
            case 1:
                return blob(name);
            case 2:
                return inner(name, depth);
            default:
                return pointers(name);
        }
    }

    /// @param result of an add whose value is fine, so that only the name can be refused
    void took(int result, const std::string& name, Type type, std::string value) {
        const int expected = name.empty() ? 4 : name.size() > 255 ? 5 : 0;
        FUZZ_CHECK(result == expected);
        if (result == 0) {
            mModel.add(name, type, std::move(value));
        }
    }

    template <typename T>
    std::string bytesOf(const T& value) {
        return {reinterpret_cast<const char*>(&value), sizeof(T)};
    }

    template <typename T>
    T element() {
        if constexpr (std::is_same_v<T, bool>) {
            return (mInput.number<uint8_t>() & 1) != 0;
        } else {
            return mInput.number<T>();
        }
    }

    template <typename T>
    void simple(const std::string& name, eFieldType code, int (OutPostcard::*add)(const char*, const T&)) {
        const T value = element<T>();
        took((mCard.get()->*add)(name.c_str(), value), name, Type{code}, bytesOf(value));
    }

    template <typename T>
    void array(const std::string& name, eFieldType code, int (OutPostcard::*add)(const char*, int, const T*)) {
        const size_t count = mInput.below(9);
        const std::unique_ptr<T[]> elements(new T[count]);
        std::string value;
        for (size_t i = 0; i < count; ++i) {
            elements[i] = element<T>();
            value += bytesOf(elements[i]);
        }
        const int result = (mCard.get()->*add)(name.c_str(), static_cast<int>(count), elements.get());
        if (count == 0) {
            FUZZ_CHECK(result == (name.empty() ? 4 : name.size() > 255 ? 5 : 7));
        } else {
            took(result, name, Type{code}, value);
        }
    }

    void pointers(const std::string& name) {
        void* const pointer = mInput.number<void*>();
        took(mCard->addPtr(name.c_str(), pointer), name, Type::Int64, bytesOf(pointer));
        took(mCard->addArrayPtr(name.c_str(), 1, &pointer), name, Type::ArrayInt64, bytesOf(pointer));
    }

    void text(const std::string& name) {
        const std::string_view piece = mInput.piece();
        const std::string value(piece.substr(0, piece.find('\0')));
        const int result = mCard->addString(name.c_str(), value.c_str());
        took(result == 4 ? (name.empty() ? 4 : 5) : result, name, Type::String, value);
    }

    void blob(const std::string& name) {
        const std::string_view value = mInput.piece();
        const int result = mCard->addBlob(name.c_str(), value.empty() ? "" : value.data(), value.size());
        if (value.empty() && !name.empty() && name.size() <= 255) {
            FUZZ_CHECK(result == 12);
            mSpoilt = true;  // what was written of it stays, and readers cannot scan past it
        } else {
            took(result, name, Type::Blob, std::string(value));
        }
    }

    void inner(const std::string& name, int depth) {
        if (depth == 0) {
            return;
        }
        Writing nested(mInput);
        FUZZ_CHECK(mCard->addCard("A", nested.card()) == 4);  // not finished
        const bool sound = nested.write(depth - 1);
        const MemoryStreamBase* bytes = nested.card()->getEncodedBuffer();
        const int result = mCard->addCard(name.c_str(), nested.card());
        took(result == 5 ? (name.empty() ? 4 : 5) : result, name, Type::Card,
             std::string(static_cast<const char*>(bytes->getBuffer()), bytes->getSize()));
        mSpoilt |= result == 0 && !sound;
    }

    fuzz::Input& mInput;
    const std::unique_ptr<OutPostcard> mCard;
    Card mModel;
    bool mSpoilt = false;
};

/// The first field of that name and type.
const test_support::Field* first(const Card& model, const std::string& name, Type type) {
    for (const test_support::Field& field : model.fields()) {
        if (field.name == name && field.type == type) {
            return &field;
        }
    }
    return nullptr;
}

template <typename T>
void checkArray(InPostcard& card, const test_support::Field& field, int (InPostcard::*get)(const char*, int*, T*)) {
    int count = static_cast<int>(field.value.size() / sizeof(T));
    const std::unique_ptr<T[]> elements(new T[static_cast<size_t>(count)]);
    FUZZ_CHECK((card.*get)(field.name.c_str(), &count, elements.get()) == 0);
    FUZZ_CHECK(static_cast<size_t>(count) * sizeof(T) == field.value.size());
    FUZZ_CHECK(std::memcmp(elements.get(), field.value.data(), field.value.size()) == 0);
}

void checkField(InPostcard& card, const test_support::Field& field) {
    const char* name = field.name.c_str();
    switch (static_cast<uint16_t>(field.type)) {
#define FUZZ_CASE(Suffix, T, Code)                                                                     \
    case Code: {                                                                                       \
        T value{};                                                                                     \
        FUZZ_CHECK(card.get##Suffix(name, value) == 0);                                                \
        FUZZ_CHECK(field.value == std::string_view(reinterpret_cast<const char*>(&value), sizeof(T))); \
        break;                                                                                         \
    }
        ZV_POSTCARD_SIMPLE_TYPES(FUZZ_CASE)
#undef FUZZ_CASE
#define FUZZ_CASE(Suffix, T, Code)                                 \
    case Code:                                                     \
        checkArray<T>(card, field, &InPostcard::getArray##Suffix); \
        break;
        ZV_POSTCARD_ARRAY_TYPES(FUZZ_CASE)
#undef FUZZ_CASE
        case FT_STRING: {
            const char* text = nullptr;
            FUZZ_CHECK(card.getString(name, &text) == 0 && text == field.value);
            break;
        }
        case FT_BLOB: {
            const void* data = nullptr;
            size_t size = 0;
            FUZZ_CHECK(card.getBlob(name, &data, &size) == 0);
            FUZZ_CHECK(field.value == std::string_view(static_cast<const char*>(data), size));
            break;
        }
        case FT_CARD: {
            InPostcard* raw = nullptr;
            FUZZ_CHECK(card.getCard(name, &raw, 0) == 0);
            const std::unique_ptr<InPostcard> inner(raw);
            const InMemoryStream* bytes = inner->getBuffer();
            FUZZ_CHECK(field.value == std::string_view(static_cast<const char*>(bytes->getBuffer()), bytes->getSize()));
            break;
        }
        default:
            FUZZ_CHECK(false);
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    fuzz::quietLog(0);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::Input input(data, size);
    Writing writing(input);
    if (!writing.write(3)) {
        return 0;
    }
    const MemoryStreamBase* stream = writing.card()->getEncodedBuffer();
    const std::string bytes(static_cast<const char*>(stream->getBuffer()), stream->getSize());
    const std::optional<Card> decoded = Card::decode(bytes);
    FUZZ_CHECK(decoded.has_value() && decoded->fields() == writing.model().fields());

    const std::unique_ptr<InPostcard> reader(InPostcard::createInstance(writing.card()));
    for (const test_support::Field& field : writing.model().fields()) {
        checkField(*reader, *first(writing.model(), field.name, field.type));
    }
    return 0;
}
