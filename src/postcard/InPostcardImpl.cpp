#include "postcard/InPostcardImpl.h"

#include <climits>
#include <cstring>
#include <new>
#include <type_traits>
#include <typeinfo>
#include <utility>

#include "base/log.h"
#include "postcard/FieldWalk.h"
#include "postcard/InMemoryStreamImpl.h"
#include "postcard/OutMemoryStreamImpl.h"
#include "postcard/OutPostcard.h"

namespace zv_loc_fw {

namespace {

constexpr char kTag[] = "InPostcard";

static_assert(sizeof(void*) == sizeof(long long), "pointers travel as FT_INT64");

int absentIsSuccess(int result) {
    return result == kFieldAbsent ? 0 : result;
}

}  // namespace

InPostcard* InPostcard::createInstance() {
    return new (std::nothrow) InPostcardImpl;
}

InPostcard* InPostcard::createInstance(OutPostcard* writer) {
    std::unique_ptr<InPostcardImpl> reader(new (std::nothrow) InPostcardImpl);
    if (reader == nullptr) {
        return nullptr;
    }
    if (writer == nullptr) {
        log_error(kTag, "InPostcardImpl(pInMem) failed %d", 2);  // no writer
        return reader.release();
    }
    reader->take(writer);
    return reader.release();
}

InPostcard* InPostcard::createInstance(InMemoryStream* stream) {
    std::unique_ptr<InMemoryStream> owned(stream);
    return new (std::nothrow) InPostcardImpl(std::move(owned));
}

bool InPostcard::hasField(InPostcard& card, const char* name) {
    const InMemoryStream* stream = card.getBuffer();
    if (stream == nullptr || name == nullptr) {
        return false;
    }
    const size_t length = std::strlen(name);
    FieldWalk walk(stream->getBuffer(), stream->getCapacity());
    if (length == 0 || walk.begin() != 0) {
        return false;
    }
    while (walk.next() == 0) {
        if (walk.nameIs(name, length)) {
            return true;
        }
        if (walk.skipValue() != 0) {
            return false;
        }
    }
    return false;
}

InPostcardImpl::InPostcardImpl(std::unique_ptr<InMemoryStream> stream)
    : mAdoptedStream(std::move(stream)), mStream(mAdoptedStream.get()) {
    if (mStream != nullptr && typeid(*mStream) == typeid(InMemoryStreamImpl)) {
        mPlainStream = static_cast<InMemoryStreamImpl*>(mStream);
    }
}

void InPostcardImpl::take(OutPostcard* writer) {
    if (auto* written = dynamic_cast<OutMemoryStreamImpl*>(writer->getInternalBuffer()); written != nullptr) {
        const size_t size = written->getSize();
        const void* bytes = written->releaseBuffer().release();
        (void)mOwnStream.setBufferOwnership(&bytes, size);
    }
    mStream = mPlainStream = &mOwnStream;
}

int InPostcardImpl::init(const void* data, size_t size, bool own) {
    int result = 0;
    if (data == nullptr) {
        result = 2;  // no data
    } else if (size == 0) {
        result = 3;  // no bytes
    } else if ((own ? mOwnStream.setBufferOwnership(&data, size) : mOwnStream.setBufferNoDup(data, size)) != 0) {
        result = 5;  // not adopted
    } else {
        mStream = mPlainStream = &mOwnStream;
        mAdoptedStream.reset();
    }
    if (result != 0) {
        log_error(kTag, "init failed %d", result);
    }
    return result;
}

// As FieldWalk's, with the cursor where the walk ends: behind the value, or at the end byte.
FieldWalk::Found InPostcardImpl::findPlainly(eFieldType type, const char* name) {
    if (mPlainStream == nullptr) {
        return {};
    }
    const auto* card = static_cast<const char*>(mPlainStream->getBuffer());
    const FieldWalk::Found found = FieldWalk::findPlainly(card, mPlainStream->getCapacity(), type, name);
    if (found.size != 0) {
        const size_t value = found.value != nullptr ? static_cast<size_t>(found.value - card) : 0;
        (void)mPlainStream->setGetCursor(value + found.size);
    }
    return found;
}

template <typename T>
int InPostcardImpl::getSimple(eFieldType type, const char* name, T& value) {
    if (name == nullptr) {
        log_error(kTag, "get simple failed %d", 2);  // no name
        return 2;
    }
    // A bool is read as its byte: any other than 0 and 1 would be no bool.
    std::conditional_t<std::is_same_v<T, bool>, uint8_t, T> stored{};
    if (const FieldWalk::Found plain = findPlainly(type, name); plain.value != nullptr) {
        std::memcpy(&stored, plain.value, sizeof(stored));
    } else if (plain.size != 0) {
        return kFieldAbsent;
    } else if (const int result = readSlowly(type, name, &stored, sizeof(stored)); result != 0) {
        return result;
    }
    if constexpr (std::is_same_v<T, bool>) {
        value = stored == 1;
    } else {
        value = stored;
    }
    return 0;
}

int InPostcardImpl::getPtr(const char* name, void*& value) {
    long long stored = 0;
    const int result = getSimple(FT_INT64, name, stored);
    if (result == 0) {
        value = reinterpret_cast<void*>(stored);  // NOLINT(performance-no-int-to-ptr): that is how pointers travel
    }
    return result;
}

int InPostcardImpl::getBlobByType(const char* name, eFieldType type, const void** data, size_t* size, bool with_length,
                                  int index) {
    if (name == nullptr || data == nullptr || size == nullptr) {
        const int result = name == nullptr ? 2 : 3;  // no name; no output
        log_error(kTag, "get blob failed %d", result);
        return result;
    }
    if (index == 0) {
        const FieldWalk::Found plain = findPlainly(type, name);
        if (plain.value != nullptr) {
            *data = with_length ? plain.value : plain.value - sizeof(uint32_t);
            *size = plain.size;
            return 0;
        }
        if (plain.size != 0) {
            *data = nullptr;
            *size = 0;
            return kFieldAbsent;
        }
    }
    return getBlobSlowly(name, type, data, size, with_length, index);
}

int InPostcardImpl::getBlob(const char* name, const void** data, size_t* size) {
    return getBlobByType(name, FT_BLOB, data, size, true, 0);
}

int InPostcardImpl::getString(const char* name, const char** value) {
    if (name != nullptr && value != nullptr) {
        const FieldWalk::Found plain = findPlainly(FT_STRING, name);
        if (plain.value != nullptr && plain.value[plain.size - 1] == '\0') {
            *value = plain.value;
            return 0;
        }
        if (plain.value == nullptr && plain.size != 0) {
            *value = nullptr;
            return kFieldAbsent;
        }
    }
    return getStringSlowly(name, value);
}

int InPostcardImpl::getStringDup(const char* name, const char** value) {
    int result = 0;
    const char* text = nullptr;
    if (value == nullptr) {
        result = 2;  // no output
    } else if (const int found = getString(name, &text); found == kFieldAbsent) {
        return kFieldAbsent;
    } else if (found != 0) {
        result = 3;  // getString failed
    } else {
        const size_t size = std::strlen(text) + 1;
        if (char* copy = new (std::nothrow) char[size]; copy == nullptr) {
            result = 4;  // no memory
        } else {
            std::memcpy(copy, text, size);
            *value = copy;
        }
    }
    if (result != 0) {
        log_error(kTag, "get string duplicate failed %d", result);
    }
    return result;
}

int InPostcardImpl::getStringOptional(const char* name, const char** value) {
    if (value == nullptr) {
        return getString(name, value);  // refused there
    }
    const char* text = nullptr;
    const int result = getString(name, &text);
    if (result != kFieldAbsent) {
        *value = text;
    }
    return absentIsSuccess(result);
}

int InPostcardImpl::getCard(const char* name, InPostcard** card, int index) {
    int result = 0;
    if (name == nullptr) {
        result = 2;  // no name
    } else if (card == nullptr) {
        result = 3;  // no output
    } else {
        *card = nullptr;
        const void* data = nullptr;
        size_t length = 0;
        if (const int found = getBlobByType(name, FT_CARD, &data, &length, false, index); found == kFieldAbsent) {
            return kFieldAbsent;
        } else if (found != 0) {
            result = 4;  // lookup failed
        } else if (std::unique_ptr<InPostcardImpl> inner(new (std::nothrow) InPostcardImpl); inner == nullptr) {
            result = 8;  // no memory
        } else if (inner->init(data, length + sizeof(uint32_t), false) != 0) {
            result = 9;  // refused by init
        } else {
            *card = inner.release();
        }
    }
    if (result != 0) {
        log_error(kTag, "get card failed %d", result);
    }
    return result;
}

template <typename T>
int InPostcardImpl::getArray(eFieldType type, const char* name, int* count, T* out) {
    int result = 0;
    const void* data = nullptr;
    size_t size = 0;
    if (name == nullptr) {
        result = 2;  // no name
    } else if (count == nullptr) {
        result = 3;  // no count
    } else if (getBlobByType(name, type, &data, &size, true, 0) != 0) {
        result = 4;  // absent (not silent: deliberate) or lookup failed
    } else if (size % sizeof(T) != 0) {
        result = 5;  // no whole number of elements
    } else if (const size_t stored = size / sizeof(T); stored == 0) {
        result = 6;  // empty
    } else if (stored > INT_MAX || (out != nullptr && *count < static_cast<int>(stored))) {
        result = 7;  // does not fit
    } else {
        if constexpr (std::is_same_v<T, bool>) {
            for (size_t i = 0; out != nullptr && i < stored; ++i) {
                out[i] = static_cast<const char*>(data)[i] == 1;
            }
        } else if (out != nullptr) {
            std::memcpy(out, data, size);
        }
        *count = static_cast<int>(stored);
    }
    if (result != 0) {
        log_error(kTag, "getArray failed %d", result);
    }
    return result;
}

#define ZV_DEFINE(Suffix, Type, Code)                                         \
    int InPostcardImpl::get##Suffix(const char* name, Type& value) {          \
        return getSimple(Code, name, value);                                  \
    }                                                                         \
    int InPostcardImpl::get##Suffix##Default(const char* name, Type& value) { \
        return absentIsSuccess(getSimple(Code, name, value));                 \
    }
ZV_POSTCARD_SIMPLE_TYPES(ZV_DEFINE)
#undef ZV_DEFINE

#define ZV_DEFINE(Suffix, Type, Code)                                               \
    int InPostcardImpl::getArray##Suffix(const char* name, int* count, Type* out) { \
        return getArray(Code, name, count, out);                                    \
    }
ZV_POSTCARD_ARRAY_TYPES(ZV_DEFINE)
#undef ZV_DEFINE

int InPostcardImpl::getArrayPtr(const char* name, int* count, void** out) {
    return getArray(FT_ARRAY_INT64, name, count, out);
}

}  // namespace zv_loc_fw
