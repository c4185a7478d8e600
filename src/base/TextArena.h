#pragma once

#include <cstddef>
#include <memory>
#include <new>
#include <string_view>
#include <utility>

namespace zv_loc_fw {

/// Keeps many short texts that all go together, without an allocation for each. Not thread-safe: its owner guards it.
class TextArena {
public:
    /// A longer one is refused.
    static constexpr size_t kLongestText = 2047;

    TextArena() = default;
    TextArena(const TextArena&) = delete;
    TextArena& operator=(const TextArena&) = delete;
    ~TextArena() {
        while (mBlock != nullptr) {  // one by one: a chain of owners would be as many calls deep
            mBlock = std::move(mBlock->before);
        }
    }

    /// @return a zero-terminated copy, valid as long as the arena; null without memory
    [[nodiscard]] const char* copy(std::string_view text) {
        if (text.size() > kLongestText) {
            return nullptr;
        }
        if (mBlock == nullptr || sizeof(mBlock->bytes) - mUsed <= text.size()) {
            std::unique_ptr<Block> block(new (std::nothrow) Block);
            if (block == nullptr) {
                return nullptr;
            }
            block->before = std::move(mBlock);
            mBlock = std::move(block);
            mUsed = 0;
        }
        char* place = mBlock->bytes + mUsed;
        text.copy(place, text.size());
        place[text.size()] = '\0';
        mUsed += text.size() + 1;
        return place;
    }

private:
    struct Block {
        std::unique_ptr<Block> before;
        char bytes[kLongestText + 1];
    };

    std::unique_ptr<Block> mBlock;
    size_t mUsed = 0;
};

}  // namespace zv_loc_fw
