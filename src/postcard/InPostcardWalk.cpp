// The careful way through a card: step by step, with the code and the line of the step that fails, and the stream's cursor
// where it stopped. Lookups come here when the plain pass (FieldWalk::findPlainly) meets anything out of order.

#include <cstring>

#include "base/log.h"
#include "postcard/FieldWalk.h"
#include "postcard/InPostcardImpl.h"

namespace zv_loc_fw {

namespace {

constexpr char kTag[] = "InPostcard";

constexpr int kValueNotSkippable = 105;

// The walk to the index-th match. Codes as findField's, from 4 on.
int scan(FieldWalk& walk, uint16_t type, const char* name, int index, int& field, int& skip_result) {
    int result = walk.begin();
    if (result != 0) {
        return result;
    }
    const size_t length = std::strlen(name);
    if (length == 0) {
        return 5;  // empty name
    }
    for (int matches = 0;; ++field) {
        result = walk.next();
        if (result != 0) {
            return result;
        }
        if (walk.type == type && walk.nameIs(name, length) && matches++ == index) {
            return 0;
        }
        skip_result = walk.skipValue();
        if (skip_result != 0) {
            return kValueNotSkippable;
        }
    }
}

}  // namespace

// Leaves the stream as if the walk had been made with it: the cursor where the walk stopped; and bytes that the walk
// did not get are asked for once more, because the line about them is the stream's.
void InPostcardImpl::settle(const FieldWalk& walk) {
    (void)mStream->setGetCursor(walk.at);
    if (walk.refused) {
        (void)mStream->extract(nullptr, walk.wanted);
    }
}

// As findField, but found values are left to the walk: the caller settles. The scan reads the bytes directly, which is
// what makes a lookup cheap.
int InPostcardImpl::locate(uint16_t type, const char* name, int index, FieldWalk& walk) {
    int result = 0;
    int field = 0;
    if (name == nullptr) {
        result = 2;  // no name
    } else if (mStream == nullptr || mStream->setGetCursor(0) != 0) {
        result = 3;  // no stream, or its cursor not reset
    } else {
        int skip_result = 0;
        walk = FieldWalk(mStream->getBuffer(), mStream->getCapacity());
        result = scan(walk, type, name, index, field, skip_result);
        if (result != 0) {
            settle(walk);
        }
        if (result == kValueNotSkippable) {
            log_error(kTag, "skipValueByType failed %d, type %u", skip_result, unsigned{walk.type});
        }
    }
    if (result > 0) {
        log_error(kTag, "findName failed %d, field index %d", result, field);
    }
    return result;
}

int InPostcardImpl::findField(uint16_t type, const char* name, int index) {
    FieldWalk walk;
    const int result = locate(type, name, index, walk);
    if (result == 0) {
        settle(walk);
    }
    return result;
}

int InPostcardImpl::readSlowly(eFieldType type, const char* name, void* value, size_t size) {
    int result = 0;
    FieldWalk walk;
    if (const int found = locate(type, name, 0, walk); found == kFieldAbsent) {
        return kFieldAbsent;
    } else if (found != 0) {
        result = 3;  // lookup failed
    } else {
        if (const char* bytes = walk.take(size); bytes == nullptr) {
            result = 4;  // value cut off
        } else {
            std::memcpy(value, bytes, size);
        }
        settle(walk);
    }
    if (result != 0) {
        log_error(kTag, "get simple failed %d", result);
    }
    return result;
}

int InPostcardImpl::getBlobSlowly(const char* name, eFieldType type, const void** data, size_t* size, bool with_length,
                                  int index) {
    int result = 0;
    *data = nullptr;
    *size = 0;
    FieldWalk walk;
    uint32_t length = 0;
    if (const int found = locate(type, name, index, walk); found == kFieldAbsent) {
        return kFieldAbsent;
    } else if (found != 0) {
        result = 4;  // lookup failed
    } else {
        if (!walk.read(length)) {
            result = 5;  // length word cut off
        } else if (const char* value = walk.take(length); value == nullptr) {
            result = 7;  // value empty or cut off
        } else {
            *size = length;
            *data = with_length ? value : value - sizeof(length);
        }
        settle(walk);
    }
    if (result != 0) {
        log_error(kTag, "get blob failed %d", result);
    }
    return result;
}

int InPostcardImpl::getStringSlowly(const char* name, const char** value) {
    int result = 0;
    if (name == nullptr) {
        result = 2;  // no name
    } else if (value == nullptr) {
        result = 3;  // no output
    } else {
        *value = nullptr;
        const void* data = nullptr;
        size_t size = 0;
        if (const int found = getBlobByType(name, FT_STRING, &data, &size, true, 0); found == kFieldAbsent) {
            return kFieldAbsent;
        } else if (found != 0) {
            result = 4;  // lookup failed
        } else if (data == nullptr) {
            result = 5;  // no value
        } else if (size == 0) {
            result = 6;  // empty value
        } else if (const char* text = static_cast<const char*>(data); text[size - 1] != '\0') {
            result = 7;  // not zero-terminated: whoever uses the text would read on beyond it
        } else {
            *value = text;
        }
    }
    if (result != 0) {
        log_error(kTag, "get string failed %d", result);
    }
    return result;
}

}  // namespace zv_loc_fw
