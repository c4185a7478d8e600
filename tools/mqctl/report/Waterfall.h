#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "report/Report.h"

namespace mqctl::report {

/// One controller's requests over time as inline SVG: a row for each, with its parts from left to right. Long quiet
/// stretches are left out by beginning another drawing.
class Waterfall {
public:
    Waterfall(const Report& report, std::string controller) : mReport(report), mController(std::move(controller)) {}

    /// @param most rows that may be drawn. @return the drawings as parts of a page
    [[nodiscard]] std::string html(size_t most, size_t* drawn) const;

    /// What the colours mean; once for a page.
    static std::string legend();

private:
    /// A row's place in time; where the log's stamps are coarse, made to fit the worker's one-after-another.
    struct Row {
        size_t request;
        double wait;   ///< all in seconds since the report's beginning
        double begin;  ///< of the transfer
        double end;
    };
    struct Panel {
        std::vector<Row> rows;
        double from = 0;
        double to = 0;
    };

    [[nodiscard]] std::vector<Panel> panels(size_t most, size_t* drawn) const;
    [[nodiscard]] Row place(size_t index, double* workerFree) const;
    [[nodiscard]] double since(int64_t us) const;
    [[nodiscard]] std::string svg(const Panel& panel) const;
    [[nodiscard]] std::string axis(const Panel& panel, double height) const;
    [[nodiscard]] std::string wedges(const Panel& panel, double height) const;
    [[nodiscard]] std::string row(const Panel& panel, const Row& row, double top) const;

    const Report& mReport;
    std::string mController;
};

}  // namespace mqctl::report
