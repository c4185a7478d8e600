#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "report/Report.h"

namespace mqctl::report {

/// Nearest rank: each is a value that occurred.
struct Percentiles {
    size_t count = 0;
    double p50 = 0;
    double p90 = 0;
    double p99 = 0;
    double max = 0;
};
Percentiles percentilesOf(std::vector<double> values);

/// Figures over many requests.
struct Summary {
    struct Figure {
        const char* name;
        Percentiles seconds;
    };
    struct Controller {
        std::string name;
        std::array<size_t, kOutcomes> outcomes{};
        size_t requests = 0;
        uint64_t bytes = 0;
        double busySec = 0;  ///< the sum of the transfers
    };

    std::array<size_t, kOutcomes> outcomes{};
    std::vector<std::pair<int, size_t>> statuses;  ///< HTTP statuses of results
    std::vector<Figure> figures;                   ///< wait and the spans of a transfer; those without a value left out
    std::vector<Controller> controllers;
    uint64_t bytes = 0;
};
Summary summaryOf(const Report& report);

std::string summaryText(const Report& report);

}  // namespace mqctl::report
