#include "postcard/OutPostcardImpl.h"

#include <cstring>
#include <limits>
#include <new>

#include "base/log.h"

namespace zv_loc_fw {

namespace {

constexpr char kTag[] = "OutPostcard";

constexpr uint32_t kOpenHeader = 0x12345678;  // stands in the header's place until the card is finished
constexpr char kEndByte = 0;
constexpr size_t kNameLimit = 256;       // with its zero
constexpr size_t kFirstCapacity = 256;   // an ordinary message fits without growing
constexpr size_t kSizedOnceFrom = 4096;  // a value of this size gets its room in one go
constexpr size_t kRoomBehind = 512;      // for the small fields behind it

static_assert(sizeof(void*) == sizeof(long long), "pointers travel as FT_INT64");

// The whole field head in one go, at a place that claim() gave. Returns the place behind it.
char* putHead(char* place, uint16_t type, const char* name, size_t length) {
    const auto name_size = static_cast<uint16_t>(length + 1);
    std::memcpy(place, &type, sizeof(type));
    std::memcpy(place + sizeof(type), &name_size, sizeof(name_size));
    place += sizeof(type) + sizeof(name_size);
    std::memcpy(place, name, name_size);
    return place + name_size;
}

constexpr size_t headSize(size_t length) {
    return sizeof(uint16_t) + sizeof(uint16_t) + length + 1;
}

}  // namespace

OutPostcard* OutPostcard::createInstance() {
    return new (std::nothrow) OutPostcardImpl;
}

int OutPostcardImpl::init() {
    int result = 0;
    if (mState != kCreated) {
        result = 2;  // opened before
    } else if (mStream.reserve(kFirstCapacity) != 0) {
        result = 3;  // no memory: the stream is made with its first buffer, or not at all
    } else {
        (void)mStream.append(&kOpenHeader, sizeof(kOpenHeader));
        mState = kOpen;
    }
    if (result != 0) {
        log_error(kTag, "init failed %d", result);
    }
    return result;
}

int OutPostcardImpl::finalize() {
    int result = 0;
    const size_t size = mStream.getPutCursor();
    if (mState != kOpen) {
        result = 2;  // not open
    } else if (size < sizeof(uint32_t) || size + 1 - sizeof(uint32_t) > std::numeric_limits<uint32_t>::max()) {
        result = 3;  // no header in the buffer, or a header cannot tell so many bytes
    } else {
        const auto header = static_cast<uint32_t>(size + 1 - sizeof(uint32_t));
        std::memcpy(mStream.getBufferNonConst(), &header, sizeof(header));
        if (mStream.append(&kEndByte, sizeof(kEndByte)) != 0) {
            result = 3;  // end byte not appended
        } else {
            mState = kFinished;
        }
    }
    if (result != 0) {
        log_error(kTag, "init failed %d", result);  // the same text as init(): deliberate
    }
    return result;
}

int OutPostcardImpl::checkName(const char* name, size_t& length) const {
    if (mState != kOpen) {
        return 2;  // not open
    }
    if (name == nullptr) {
        return 3;  // no name
    }
    length = std::strlen(name);
    if (length == 0) {
        return 4;  // empty name
    }
    if (length >= kNameLimit) {
        return 5;  // name too long
    }
    return 0;
}

template <typename T>
int OutPostcardImpl::appendSimple(eFieldType type, const char* name, const T& value) {
    size_t length = 0;
    const int check = checkName(name, length);
    if (check != 0) {
        return check;
    }
    if (char* place = mStream.claim(headSize(length) + sizeof(T)); place != nullptr) {
        std::memcpy(putHead(place, type, name, length), &value, sizeof(T));
        return 0;
    }
    const uint16_t code = type;
    const auto name_size = static_cast<uint16_t>(length + 1);
    if (mStream.append(&code, sizeof(code)) != 0) {
        return 6;  // type
    }
    if (mStream.append(&name_size, sizeof(name_size)) != 0) {
        return 7;  // name length
    }
    if (mStream.append(name, name_size) != 0) {
        return 8;  // name
    }
    if (mStream.append(&value, sizeof(T)) != 0) {
        return 9;  // value
    }
    return 0;
}

template <typename T>
int OutPostcardImpl::addSimple(eFieldType type, const char* name, const T& value) {
    const int result = appendSimple(type, name, value);
    if (result != 0) {
        log_error(kTag, "add simple failed %d", result);
    }
    return result;
}

int OutPostcardImpl::appendLong(eFieldType type, const char* name, size_t length, const void* data, size_t size,
                                bool with_length) {
    if (size > std::numeric_limits<uint32_t>::max()) {
        return 11;  // the length word cannot tell so many bytes
    }
    const uint16_t code = type;
    const auto name_size = static_cast<uint16_t>(length + 1);
    const auto data_size = static_cast<uint32_t>(size);
    if (size >= kSizedOnceFrom) {
        // Room for what follows, too, or the next small field would have all of it copied. Without memory the appends
        // below have their say.
        (void)mStream.reserve(mStream.getPutCursor() + headSize(length) + sizeof(data_size) + size + kRoomBehind);
    }
    if (char* place = mStream.claim(headSize(length)); place != nullptr) {
        putHead(place, type, name, length);
    } else if (mStream.append(&code, sizeof(code)) != 0) {
        return 8;  // type
    } else if (mStream.append(&name_size, sizeof(name_size)) != 0) {
        return 9;  // name length
    } else if (mStream.append(name, name_size) != 0) {
        return 10;  // name
    }
    if (with_length && mStream.append(&data_size, sizeof(data_size)) != 0) {
        return 11;  // length word
    }
    if (mStream.append(data, size) != 0) {
        return 12;  // data; a size of 0 ends here too, as the stream appends no empty run
    }
    return 0;
}

int OutPostcardImpl::addBlobWithType(const char* name, eFieldType type, const void* data, size_t size,
                                     bool with_length) {
    size_t length = 0;
    int result = checkName(name, length);
    if (result == 0) {
        result = data == nullptr ? 6 : appendLong(type, name, length, data, size, with_length);  // 6: no data
    }
    if (result != 0) {
        log_error(kTag, "addBlobWithType failed %d", result);
    }
    return result;
}

int OutPostcardImpl::addArray(eFieldType type, const char* name, int count, const void* elements, size_t width) {
    size_t length = 0;
    int result = checkName(name, length);
    if (result == 0) {
        if (elements == nullptr) {
            result = 6;  // no elements
        } else if (count < 1) {
            result = 7;  // an empty array cannot be written
        } else {
            result = appendLong(type, name, length, elements, static_cast<size_t>(count) * width, true);
        }
    }
    if (result != 0) {
        log_error(kTag, "add array failed %d", result);
    }
    return result;
}

int OutPostcardImpl::addString(const char* name, const char* value) {
    int result = 0;
    if (name == nullptr) {
        result = 2;  // no name
    } else if (value == nullptr) {
        result = 3;  // no value
    } else if (addBlobWithType(name, FT_STRING, value, std::strlen(value) + 1, true) != 0) {
        result = 4;  // not written
    }
    if (result != 0) {
        log_error(kTag, "add string failed %d", result);
    }
    return result;
}

int OutPostcardImpl::addBlob(const char* name, const void* data, size_t size) {
    return addBlobWithType(name, FT_BLOB, data, size, true);
}

int OutPostcardImpl::addCard(const char* name, const OutPostcard* card) {
    int result = 0;
    if (name == nullptr) {
        result = 2;  // no name
    } else if (card == nullptr) {
        result = 3;  // no card
    } else {
        // A writer of another kind has no state that this one knows: not finished.
        const auto* inner = dynamic_cast<const OutPostcardImpl*>(card);
        if (inner == nullptr || inner->mState != kFinished) {
            result = 4;  // not finished
        } else if (addBlobWithType(name, FT_CARD, inner->mStream.getBuffer(), inner->mStream.getSize(), false) != 0) {
            result = 5;  // not written
        }
    }
    if (result != 0) {
        log_error(kTag, "add card failed %d", result);
    }
    return result;
}

#define ZV_DEFINE(Suffix, Type, Code)                                       \
    int OutPostcardImpl::add##Suffix(const char* name, const Type& value) { \
        return addSimple(Code, name, value);                                \
    }
ZV_POSTCARD_SIMPLE_TYPES(ZV_DEFINE)
#undef ZV_DEFINE

int OutPostcardImpl::addPtr(const char* name, void* const& value) {
    return addSimple(FT_INT64, name, reinterpret_cast<long long>(value));
}

#define ZV_DEFINE(Suffix, Type, Code)                                                          \
    int OutPostcardImpl::addArray##Suffix(const char* name, int count, const Type* elements) { \
        return addArray(Code, name, count, elements, sizeof(Type));                            \
    }
ZV_POSTCARD_ARRAY_TYPES(ZV_DEFINE)
#undef ZV_DEFINE

int OutPostcardImpl::addArrayPtr(const char* name, int count, void* const* elements) {
    return addArray(FT_ARRAY_INT64, name, count, elements, sizeof(void*));
}

}  // namespace zv_loc_fw
