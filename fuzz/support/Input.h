#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

/// Ends the process, so that the input counts as a finding. Unlike assert it is there in every build.
#define FUZZ_CHECK(condition)                                                                           \
    do {                                                                                                \
        if (!(condition)) {                                                                             \
            (void)std::fprintf(stderr, "%s:%d: does not hold: %s\n", __FILE__, __LINE__, (#condition)); \
            std::abort();                                                                               \
        }                                                                                               \
    } while (false)

namespace fuzz {

/// What a target makes of its input, from the front to the back. Whatever is wanted beyond the end is zero or empty, so
/// every input means something.
class Input {
public:
    Input(const uint8_t* data, size_t size) : mRest(reinterpret_cast<const char*>(data), size) {}

    [[nodiscard]] bool empty() const { return mRest.empty(); }

    template <typename T>
    T number() {
        T value{};
        const std::string_view raw = bytes(sizeof(T));
        if (!raw.empty()) {
            std::memcpy(&value, raw.data(), raw.size());
        }
        return value;
    }

    /// A number below the limit.
    size_t below(size_t limit) { return number<uint8_t>() % limit; }

    std::string_view bytes(size_t size) {
        const std::string_view taken = mRest.substr(0, size);
        mRest.remove_prefix(taken.size());
        return taken;
    }

    /// Bytes behind a length of two bytes: long pieces can stand in the middle.
    std::string_view piece() { return bytes(number<uint16_t>()); }

    std::string_view rest() { return bytes(mRest.size()); }

private:
    std::string_view mRest;
};

/// A line of the log is formatted, for the sake of what its arguments point to, and goes nowhere.
/// @param framework_level highest severity of the framework's lines that are made at all, 0 to 5
void quietLog(int framework_level);

/// Counts the lines whose text contains `part` from now on. Any thread may log meanwhile.
void countLogLines(const char* part);
[[nodiscard]] int countedLogLines();

}  // namespace fuzz

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
