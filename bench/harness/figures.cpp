#include "harness/figures.h"

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstddef>
#include <cstdio>

namespace bench {

double quantile(std::vector<double> values, double share) {
    if (values.empty()) {
        return 0;
    }
    const auto at = static_cast<std::size_t>(std::lround(share * static_cast<double>(values.size() - 1)));
    std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(at), values.end());
    return values[at];
}

double ratioOf(const std::vector<double>& ours, const std::vector<double>& other) {
    std::vector<double> ratios;
    for (std::size_t i = 0; i < ours.size() && i < other.size(); ++i) {
        ratios.push_back(ours[i] / other[i]);
    }
    return quantile(ratios, 0.5);
}

std::string timeText(double ns) {
    const char* unit = "ns";
    double value = ns;
    for (const char* larger : {"us", "ms", "s"}) {
        if (value < 1000) {
            break;
        }
        value /= 1000;
        unit = larger;
    }
    return textOf("%.*f %s", value < 10 ? 2 : value < 100 ? 1 : 0, value, unit);
}

std::string textOf(const char* format, ...) {
    char text[512];
    va_list arguments;
    va_start(arguments, format);
    (void)std::vsnprintf(text, sizeof(text), format, arguments);  // NOLINT(clang-analyzer-valist.Uninitialized): it is
    va_end(arguments);
    return text;
}

}  // namespace bench
