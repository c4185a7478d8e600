#pragma once

#include <string>
#include <vector>

#include "report/Report.h"

namespace mqctl::report {

struct TableOptions {
    bool legend = true;  ///< the line of headings
    bool urls = false;   ///< a last column
    size_t width = 0;    ///< lines are cut there; 0: never
};

/// One line for each request.
std::string textTable(const Report& report, const TableOptions& options);

/// Rows of cells under headings; every column but the last as wide as its widest cell.
class TextTable {
public:
    enum class Align { kLeft, kRight };

    void addColumn(std::string heading, Align align) { mColumns.push_back({std::move(heading), align}); }
    void addRow(std::vector<std::string> cells) { mRows.push_back(std::move(cells)); }
    [[nodiscard]] std::string text(bool legend, size_t width) const;

private:
    struct Column {
        std::string heading;
        Align align;
    };

    void appendLine(const std::vector<std::string>& cells, const std::vector<size_t>& widths, size_t limit,
                    std::string* out) const;

    std::vector<Column> mColumns;
    std::vector<std::vector<std::string>> mRows;
};

}  // namespace mqctl::report
