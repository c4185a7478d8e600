#pragma once

namespace test_support {

/// Bodies, numbers of requests and limits are others where a sanitizer watches every memory access.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool kSanitized = true;
#elif defined(__has_feature)
inline constexpr bool kSanitized = __has_feature(address_sanitizer) || __has_feature(thread_sanitizer);
#else
inline constexpr bool kSanitized = false;
#endif

/// The same goes for a processor that is emulated. tests/not_emulated.txt has what an emulator cannot do at all.
#ifdef TEST_EMULATED
inline constexpr bool kEmulated = true;
#else
inline constexpr bool kEmulated = false;
#endif

inline constexpr bool kSlowed = kSanitized || kEmulated;

}  // namespace test_support
