#pragma once

#include <vector>

#include "macro/macro.h"

namespace bench {

struct CompareOptions {
    int rounds = 15;
    std::size_t divisor = 1;  ///< of the passes in a round
    int core = 0;             ///< of everybody
    int otherCore = -1;       ///< of the servants, when they have one of their own; -1 there is none
};

/// Runs the rows in turns, prints the table.
void compare(const ExchangeTable& table, const std::vector<const ExchangeRow*>& rows, const Stage& stage,
             const CompareOptions& options);

}  // namespace bench
