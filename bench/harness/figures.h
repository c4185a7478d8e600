#pragma once

#include <string>
#include <vector>

namespace bench {

/// @param share 0.5 is the median. 0 without values
double quantile(std::vector<double> values, double share);

/// Of two subjects' medians, one a round: the median of the ratios taken within the rounds.
double ratioOf(const std::vector<double>& ours, const std::vector<double>& other);

/// "12.3 us".
std::string timeText(double ns);

/// As printf.
std::string textOf(const char* format, ...) __attribute__((format(printf, 1, 2)));

}  // namespace bench
