// The reader: every getter, over any bytes, nested cards too.

#include "postcard/InPostcard.h"

#include <memory>
#include <string_view>

#include "support/Input.h"

namespace {

using namespace zv_loc_fw;

constexpr const char* kNames[] = {"A", "B", "TX-ID", ""};
constexpr int kMaxDepth = 4;
constexpr int kMaxIndex = 3;

template <typename T>
std::string_view bytesOf(const T& value) {
    return {reinterpret_cast<const char*>(&value), sizeof(T)};
}

class Reading {
public:
    Reading(InPostcard& card, const char* name) : mCard(card), mName(name) {
        const InMemoryStream* stream = card.getBuffer();
        mBegin = static_cast<const char*>(stream->getBuffer());
        mEnd = mBegin + stream->getSize();
    }

    /// @return whether any getter found something
    bool all() {
#define FUZZ_SIMPLE(Suffix, Type, Code) simple<Type>(&InPostcard::get##Suffix, &InPostcard::get##Suffix##Default);
        ZV_POSTCARD_SIMPLE_TYPES(FUZZ_SIMPLE)
#undef FUZZ_SIMPLE
#define FUZZ_ARRAY(Suffix, Type, Code) array<Type>(&InPostcard::getArray##Suffix);
        ZV_POSTCARD_ARRAY_TYPES(FUZZ_ARRAY)
#undef FUZZ_ARRAY
        array<void*>(&InPostcard::getArrayPtr);
        pointer();
        text();
        blob();
        return mFound;
    }

private:
    template <typename T>
    void simple(int (InPostcard::*get)(const char*, T&), int (InPostcard::*getDefault)(const char*, T&)) {
        T value{};
        T with_default{};
        const int result = (mCard.*get)(mName, value);
        const int default_result = (mCard.*getDefault)(mName, with_default);
        FUZZ_CHECK(default_result == (result == kFieldAbsent ? 0 : result));
        FUZZ_CHECK(bytesOf(value) == bytesOf(with_default));  // the bytes: not a number is not equal to itself
        FUZZ_CHECK(result == 0 || value == T{});
        mFound |= result == 0;
    }

    template <typename T>
    void array(int (InPostcard::*get)(const char*, int*, T*)) {
        int count = -1;
        const int result = (mCard.*get)(mName, &count, nullptr);
        FUZZ_CHECK(result == 0 ? count > 0 : count == -1);
        if (result != 0) {
            return;
        }
        mFound = true;
        int room = count - 1;
        const std::unique_ptr<T[]> elements(new T[static_cast<size_t>(count)]);
        FUZZ_CHECK((mCard.*get)(mName, &room, elements.get()) == 7 && room == count - 1);
        room = count;
        FUZZ_CHECK((mCard.*get)(mName, &room, elements.get()) == 0 && room == count);
    }

    void pointer() {
        void* value = nullptr;
        long long number = 0;
        FUZZ_CHECK(mCard.getPtr(mName, value) == mCard.getInt64(mName, number));
    }

    void text() {
        const char* value = nullptr;
        const char* optional = nullptr;
        const char* copy = nullptr;
        const int result = mCard.getString(mName, &value);
        FUZZ_CHECK(mCard.getStringOptional(mName, &optional) == (result == kFieldAbsent ? 0 : result));
        const int copied = mCard.getStringDup(mName, &copy);
        const std::unique_ptr<const char[]> owner(copy);
        FUZZ_CHECK((copied == 0) == (result == 0));
        FUZZ_CHECK(value == optional && (value != nullptr) == (result == 0));
        if (result == 0) {
            mFound = true;
            FUZZ_CHECK(value >= mBegin && value < mEnd && std::strlen(value) < static_cast<size_t>(mEnd - value));
            FUZZ_CHECK(std::strcmp(value, copy) == 0);
        }
    }

    void blob() {
        const void* data = nullptr;
        size_t size = 0;
        const int result = mCard.getBlob(mName, &data, &size);
        FUZZ_CHECK((data != nullptr) == (result == 0) && (size != 0) == (result == 0));
        if (result == 0) {
            mFound = true;
            const char* begin = static_cast<const char*>(data);
            FUZZ_CHECK(begin >= mBegin && size <= static_cast<size_t>(mEnd - begin));
        }
    }

    InPostcard& mCard;
    const char* const mName;
    const char* mBegin = nullptr;
    const char* mEnd = nullptr;
    bool mFound = false;
};

void readCard(InPostcard& card, int depth) {
    for (const char* name : kNames) {
        bool found = Reading(card, name).all();
        for (int index = 0; index < kMaxIndex; ++index) {
            InPostcard* raw = nullptr;
            const int result = card.getCard(name, &raw, index);
            const std::unique_ptr<InPostcard> inner(raw);
            FUZZ_CHECK((result == 0) == (inner != nullptr));
            if (inner == nullptr) {
                break;
            }
            found = true;
            if (depth < kMaxDepth) {
                readCard(*inner, depth + 1);
            }
        }
        FUZZ_CHECK(!found || InPostcard::hasField(card, name));
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    fuzz::quietLog(0);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::unique_ptr<InPostcard> card(InPostcard::createInstance());
    if (card->init(data, size, false) == 0) {
        readCard(*card, 0);
    }
    return 0;
}
