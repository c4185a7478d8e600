#pragma once

#include <cstddef>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

/// A small harness for comparisons on a noisy machine. What is compared is timed in turns, a few microseconds each, in
/// one process pinned to one core, and ratios are taken within a round: what disturbs a round disturbs all of it.
///
/// A source file registers its rows by itself, so a peer that is not installed is a file that is not compiled. The
/// tables that rows belong to are in tables.cpp of each directory.
namespace bench {

/// Does the work n times.
using Loop = std::function<void(std::size_t n)>;

/// The subject that the tables are about; the others are peers, or a limit that nobody gets below.
inline constexpr const char* kOurs = "inet-agent";

struct Row {
    std::string table;              ///< id of its table
    std::string subject;            ///< kOurs, a peer or a limit; in a growth table anything, the size is shown
    std::function<Loop()> prepare;  ///< called once, when the table is asked for; what it sets up lives in the loop
    std::size_t size = 0;           ///< growth tables: how many
};

struct Goal {
    std::string subject;
    double ratio;  ///< what ours costs, as a multiple of what the subject costs, at most
};

struct Table {
    std::string id;     ///< GROUP/NAME; --only takes either, or the beginning
    std::string title;  ///< what is done once
    std::vector<Goal> goals;
    std::string per;  ///< growth tables: what there are `size` of, in the singular; empty: a comparison
};

/// As a static object: puts a row or a table on the list.
struct Register {
    explicit Register(Row row);
    explicit Register(Table table);
};

/// Keeps a result alive without using it.
template <typename T>
inline void keep(const T& value) {
    asm volatile("" : : "r,m"(value) : "memory");
}

/// What was measured must have been the work: ends the program otherwise.
inline void require(bool right) {
    if (!right) {
        std::abort();
    }
}

}  // namespace bench
