#include "report/TextTable.h"

#include <algorithm>

#include "report/LogStamp.h"
#include "report/ReportText.h"

namespace mqctl::report {

namespace {

/// Long names would push everything else off the screen; the other outputs have them whole.
constexpr size_t kLongestName = 24;

std::string orDash(const std::string& text, size_t longest = kLongestName) {
    return text.empty() ? "-" : shortened(printable(text), longest);
}

std::string seconds(double value) {
    return value > 0 ? fixed(value, 3) : "-";
}

std::vector<std::string> rowOf(const Report& report, const Request& request, bool urls) {
    const Timing timing = request.timing.value_or(Timing());
    const auto wait = request.waitSec();
    std::vector<std::string> cells = {
        timeText(request.beginUs(), report.timeDigits()),
        orDash(request.controller),
        orDash(request.client),
        request.txId ? std::to_string(*request.txId) : "-",
        orDash(request.method),
        wait ? fixed(*wait, report.timeDigits()) : "-",
        seconds(timing.name),
        seconds(timing.connect),
        seconds(timing.app),
        seconds(timing.firstByte),
        request.timing ? fixed(timing.total, 3) : "-",
        request.timing ? std::to_string(timing.bytes) : "-",
        printable(report.outcomeText(request)),
    };
    if (urls) {
        cells.push_back(orDash(request.url, std::string::npos));
    }
    return cells;
}

}  // namespace

std::string TextTable::text(bool legend, size_t width) const {
    std::vector<size_t> widths;
    std::vector<std::string> headings;
    for (const Column& column : mColumns) {
        headings.push_back(column.heading);
        widths.push_back(legend ? column.heading.size() : 0);
    }
    for (const auto& row : mRows) {
        for (size_t i = 0; i < row.size(); ++i) {
            widths[i] = std::max(widths[i], columns(row[i]));
        }
    }
    std::string out;
    if (legend) {
        appendLine(headings, widths, width, &out);
    }
    for (const auto& row : mRows) {
        appendLine(row, widths, width, &out);
    }
    return out;
}

void TextTable::appendLine(const std::vector<std::string>& cells, const std::vector<size_t>& widths, size_t limit,
                           std::string* out) const {
    std::string line;
    for (size_t i = 0; i < cells.size(); ++i) {
        const std::string padding(widths[i] - std::min(widths[i], columns(cells[i])), ' ');
        line += mColumns[i].align == Align::kRight ? padding + cells[i] : cells[i] + padding;
        line += "  ";
    }
    line.erase(line.find_last_not_of(' ') + 1);
    *out += limit == 0 ? line : shortened(line, limit);
    *out += '\n';
}

std::string textTable(const Report& report, const TableOptions& options) {
    TextTable table;
    for (const char* heading : {"START", "CONTROLLER", "CLIENT"}) {
        table.addColumn(heading, TextTable::Align::kLeft);
    }
    table.addColumn("TX", TextTable::Align::kRight);
    table.addColumn("REQ", TextTable::Align::kLeft);
    for (const char* heading : {"WAIT", "DNS", "CONN", "TLS", "FIRST", "TOTAL", "BYTES"}) {
        table.addColumn(heading, TextTable::Align::kRight);
    }
    table.addColumn("RESULT", TextTable::Align::kLeft);
    if (options.urls) {
        table.addColumn("URL", TextTable::Align::kLeft);
    }
    for (const Request& request : report.requests) {
        table.addRow(rowOf(report, request, options.urls));
    }
    return table.text(options.legend, options.width);
}

}  // namespace mqctl::report
