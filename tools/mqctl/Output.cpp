#include "Output.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "Text.h"

namespace mqctl {

namespace {

constexpr size_t kUnlimited = 0;

const char* codeOf(Style style) {
    switch (style) {
        case Style::kHeading:
            return "\033[1m";
        case Style::kGood:
            return "\033[32m";
        case Style::kWarning:
            return "\033[33m";
        case Style::kBad:
            return "\033[31m";
        case Style::kFaint:
            return "\033[2m";
        default:
            return "";
    }
}

// The environment is read before any thread exists.
bool environmentForbidsColor() {
    const char* no_color = std::getenv("NO_COLOR");  // NOLINT(concurrency-mt-unsafe)
    const char* term = std::getenv("TERM");          // NOLINT(concurrency-mt-unsafe)
    return (no_color != nullptr && *no_color != '\0') || term == nullptr || std::strcmp(term, "dumb") == 0;
}

bool wantsColor(ColorMode mode, bool is_terminal) {
    return mode == ColorMode::kAlways || (mode == ColorMode::kAuto && is_terminal && !environmentForbidsColor());
}

std::string painted(Style style, const std::string& text) {
    return style == Style::kPlain ? text : codeOf(style) + text + "\033[0m";
}

}  // namespace

Output::Output(const GlobalOptions& options)
    : mOptions(options), mOutIsTerminal(::isatty(STDOUT_FILENO) == 1), mErrIsTerminal(::isatty(STDERR_FILENO) == 1) {}

size_t Output::columns() const {
    winsize size{};
    if (!mOutIsTerminal || ::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0) {
        return kUnlimited;
    }
    return size.ws_col;
}

std::string Output::paint(Style style, const std::string& text) const {
    return !json() && wantsColor(mOptions.color, mOutIsTerminal) ? painted(style, text) : text;
}

void Output::keepError() {
    if (mWriteError == 0) {
        mWriteError = errno != 0 ? errno : EIO;
    }
}

void Output::write(std::string_view bytes) {
    errno = 0;
    if (mWriteError == 0 && std::fwrite(bytes.data(), 1, bytes.size(), stdout) != bytes.size()) {
        keepError();
    }
}

void Output::writeJson(const Json& value) {
    const bool pretty = mOptions.json == JsonMode::kPretty || (mOptions.json == JsonMode::kAuto && mOutIsTerminal);
    // Texts of others may hold anything; what is no UTF-8 there was not worth a form of its own.
    write(value.dump(pretty ? 2 : -1, ' ', false, Json::error_handler_t::replace) + "\n");
}

bool Output::flush() {
    errno = 0;
    if (mWriteError == 0 && std::fflush(stdout) != 0) {
        keepError();
    }
    return mWriteError == 0;
}

void Output::note(const std::string& text) {
    if (!mOptions.quiet) {
        (void)flush();
        std::fprintf(stderr, "%s\n", text.c_str());
    }
}

void Output::detail(const std::string& text) {
    if (mOptions.verbose) {
        (void)flush();
        std::fprintf(stderr, "%s\n", text.c_str());
    }
}

int Output::fail(ExitCode code, const std::string& text) {
    (void)flush();
    if (json()) {
        Json error = Json::object();
        error["error"] = text;
        error["exit"] = static_cast<int>(code);
        std::fprintf(stderr, "%s\n", error.dump(-1, ' ', false, Json::error_handler_t::replace).c_str());
    } else {
        const std::string name = wantsColor(mOptions.color, mErrIsTerminal) ? painted(Style::kBad, "mqctl:") : "mqctl:";
        std::fprintf(stderr, "%s %s\n", name.c_str(), printable(text).c_str());
    }
    return code;
}

int Output::finish(int code) {
    if (flush() || mWriteError == EPIPE || code != kOk) {
        return code;
    }
    return fail(kOwnFailure, std::string("cannot write: ") + std::strerror(mWriteError));
}

void Table::write(Output& out, bool legend) const {
    std::vector<size_t> widths;
    for (const std::string& heading : mHeadings) {
        widths.push_back(legend ? columnsOf(heading) : 0);
    }
    for (const Row& row : mRows) {
        for (size_t i = 0; i < row.size(); ++i) {
            widths[i] = std::max(widths[i], columnsOf(printable(row[i].text)));
        }
    }
    const size_t columns = out.columns();
    const auto writeRow = [&](const Row& row) {
        std::string line;
        size_t used = 0;
        for (size_t i = 0; i < row.size(); ++i) {
            const size_t left = columns == kUnlimited ? std::string::npos : columns > used ? columns - used : 0;
            const std::string text = cutTo(printable(row[i].text), left);
            const size_t width = columnsOf(text);
            line += out.paint(row[i].style, text);
            if (i + 1 < row.size()) {
                line += std::string(std::min(widths[i] + 2 - width, left - width), ' ');
            }
            used += std::min(widths[i] + 2, left);
        }
        out.write(line + "\n");
    };
    if (legend) {
        Row heading;
        for (const std::string& text : mHeadings) {
            heading.push_back({text, Style::kHeading});
        }
        writeRow(heading);
    }
    for (const Row& row : mRows) {
        writeRow(row);
    }
}

}  // namespace mqctl
