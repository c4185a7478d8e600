#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "CardJson.h"
#include "ExitCode.h"
#include "GlobalOptions.h"

namespace mqctl {

enum class Style : uint8_t { kPlain, kHeading, kGood, kWarning, kBad, kFaint };

/// Data to standard output, everything else to standard error, in the order of the calls where both are one. One
/// thread.
class Output {
public:
    explicit Output(const GlobalOptions& options);

    [[nodiscard]] bool json() const { return mOptions.json != JsonMode::kOff; }
    [[nodiscard]] bool outIsTerminal() const { return mOutIsTerminal; }
    [[nodiscard]] bool errIsTerminal() const { return mErrIsTerminal; }
    /// Of the terminal at standard output; nothing is cut without one.
    [[nodiscard]] size_t columns() const;

    /// The text, coloured if standard output is to be.
    [[nodiscard]] std::string paint(Style style, const std::string& text) const;

    void write(std::string_view bytes);
    /// One line, or one indented block.
    void writeJson(const Json& value);
    /// For streams: what was written reaches the reader now. @return false when nothing more can be written
    bool flush();

    /// A line on standard error, unless quiet.
    void note(const std::string& text);
    /// The same with -v only.
    void detail(const std::string& text);
    /// "mqctl: TEXT" on standard error, as an object with --json. @return the code
    int fail(ExitCode code, const std::string& text);

    /// The end: a command's code, or kOwnFailure when standard output could not be written. A reader that left early
    /// is no failure.
    int finish(int code);

private:
    void keepError();

    const GlobalOptions& mOptions;
    const bool mOutIsTerminal;
    const bool mErrIsTerminal;
    int mWriteError = 0;  // the first failed write's errno
};

/// Columns of text below a heading, cut to the terminal's width.
class Table {
public:
    struct Cell {
        std::string text;
        Style style = Style::kPlain;
    };
    using Row = std::vector<Cell>;

    explicit Table(std::vector<std::string> headings) : mHeadings(std::move(headings)) {}
    void add(Row row) { mRows.push_back(std::move(row)); }
    void write(Output& out, bool legend) const;

private:
    std::vector<std::string> mHeadings;
    std::vector<Row> mRows;
};

}  // namespace mqctl
