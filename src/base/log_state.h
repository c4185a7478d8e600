#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "base/List.h"
#include "base/text.h"

namespace zv_loc_fw {
class MutexImpl;
}

/// The inside of the log, for log.cpp and its tests alone.
namespace zv_loc_fw::log_detail {

struct FreeDeleter {
    void operator()(char* text) const { std::free(text); }
};

struct LocalLogLevelItem {
    std::unique_ptr<char, FreeDeleter> tag;
    int32_t level;
    uint32_t output_mask;
};

constexpr uint32_t kToAndroidLog = 1U << 0;
constexpr uint32_t kToStandardOutput = 1U << 1;

/// A text of at most 63 characters with one writer at a time (under the global lock) and readers that take no lock. A
/// new text goes to the slot after the current one, so a reader meets a half-written slot only when it was overtaken by
/// a whole round of writers; it notices and reads again.
class GlobalTag {
public:
    static constexpr size_t kSize = 64;
    using Text = char[kSize];

    /// @return the length of the text, kSize or more when it was cut
    size_t publish(const char* text) {
        uint64_t words[kWords] = {};
        const size_t length = copyText(reinterpret_cast<char*>(words), text, kSize);
        const uint64_t generation = mGeneration.load(std::memory_order_relaxed) + 1;
        Slot& slot = mSlots[generation % kSlots];
        for (size_t i = 0; i < kWords; ++i) {
            // Release: whoever reads this word also sees that the previous generation is out.
            slot[i].store(words[i], std::memory_order_release);
        }
        mGeneration.store(generation, std::memory_order_release);
        return length;
    }

    void read(Text& text) const {
        uint64_t words[kWords]{};
        uint64_t first = 0;
        do {
            first = mGeneration.load(std::memory_order_acquire);
            const Slot& slot = mSlots[first % kSlots];
            for (size_t i = 0; i < kWords; ++i) {
                words[i] = slot[i].load(std::memory_order_acquire);
            }
        } while (mGeneration.load(std::memory_order_relaxed) - first >= kSlots - 1);
        std::memcpy(text, words, kSize);
    }

private:
    static constexpr size_t kSlots = 4;
    static constexpr size_t kWords = kSize / sizeof(uint64_t);
    using Slot = std::atomic<uint64_t>[kWords];

    std::atomic<uint64_t> mGeneration{0};
    Slot mSlots[kSlots]{};
};

struct State {
    /// may be null: no memory at start-up
    MutexImpl* lock = nullptr;
    std::atomic<int32_t> level{0};
    GlobalTag tag;
    /// may be null: no memory at start-up; changed by one thread at a time, at start-up and in tests
    List<LocalLogLevelItem>* local_levels = nullptr;
};

/// Never destroyed, nor what it points to.
extern State state;

}  // namespace zv_loc_fw::log_detail
