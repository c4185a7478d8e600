#pragma once

#include <cstdlib>
#include <type_traits>

// Arithmetic whose overflow is a broken invariant: the process ends by abort(). Any thread.

namespace zv_loc_fw {

template <typename T>
[[nodiscard]] constexpr T checkedAdd(T a, std::type_identity_t<T> b) {
    T sum{};
    if (__builtin_add_overflow(a, b, &sum)) {
        std::abort();
    }
    return sum;
}

template <typename T>
[[nodiscard]] constexpr T checkedSub(T a, std::type_identity_t<T> b) {
    T difference{};
    if (__builtin_sub_overflow(a, b, &difference)) {
        std::abort();
    }
    return difference;
}

template <typename T>
[[nodiscard]] constexpr T checkedMul(T a, std::type_identity_t<T> b) {
    T product{};
    if (__builtin_mul_overflow(a, b, &product)) {
        std::abort();
    }
    return product;
}

}  // namespace zv_loc_fw
