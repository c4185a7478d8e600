#include "report/Waterfall.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "report/LogStamp.h"
#include "report/ReportText.h"

namespace mqctl::report {

namespace {

constexpr double kUsPerSecond = 1e6;
constexpr size_t kRowsPerPanel = 60;
constexpr double kQuietSec = 10;
constexpr double kRowHeight = 34;
constexpr double kAxisHeight = 22;
constexpr double kBarHeight = 10;
/// Bars, not letters, are placed by percentages: a narrow screen squeezes the one and keeps the other readable.
constexpr double kNarrowestPercent = 0.4;

struct Part {
    const char* style;
    const char* name;
};
constexpr Part kWait = {"w", "waiting in the queue"};
constexpr Part kName = {"n", "name"};
constexpr Part kConnect = {"c", "connect"};
constexpr Part kTls = {"t", "TLS"};
constexpr Part kFirstByte = {"f", "waiting for the first byte"};
constexpr Part kReceive = {"r", "receive"};
constexpr Part kUnknown = {"u", "running, no figures"};

std::string number(double value) {
    return fixed(value, 3);
}

std::string percent(double at, double from, double to) {
    return number(std::clamp((at - from) / (to - from), 0.0, 1.0) * 100);
}

/// "0", "500 ms", "1.5 s", "20 min"
std::string tick(double seconds) {
    const bool small = seconds < 1;
    const bool large = seconds >= 600;
    char text[32];
    (void)std::snprintf(text, sizeof(text), "%.6g%s",
                        small   ? seconds * 1e3
                        : large ? seconds / 60
                                : seconds,
                        seconds <= 0 ? ""
                        : small      ? " ms"
                        : large      ? " min"
                                     : " s");
    return text;
}

bool isGood(const Request& request) {
    constexpr int kFirstBadStatus = 400;
    return request.outcome == Outcome::kResult && request.httpStatus.value_or(0) < kFirstBadStatus;
}

}  // namespace

double Waterfall::since(int64_t us) const {
    return static_cast<double>(us - mReport.fromUs) / kUsPerSecond;
}

Waterfall::Row Waterfall::place(size_t index, double* workerFree) const {
    const Request& request = mReport.requests[index];
    Row row{index, since(request.beginUs()), since(request.beginUs()), since(request.lastUs())};
    const auto begin = request.transferUs ? request.transferUs : request.startedUs;
    if (!begin) {
        row.begin = row.end;  // it never ran
        if (request.timing) {
            row.begin = std::max(row.wait, row.end - request.timing->total);
        }
        return row;
    }
    row.begin = since(*begin);
    if (mReport.wholeSeconds) {
        row.begin = std::max(row.begin, *workerFree);
    }
    if (request.timing) {
        row.end = row.begin + request.timing->total;
    } else {
        row.end = std::max(row.end, row.begin);
    }
    *workerFree = row.end;
    return row;
}

std::vector<Waterfall::Panel> Waterfall::panels(size_t most, size_t* drawn) const {
    std::vector<Panel> panels;
    double worker_free = 0;
    for (size_t i = 0; i < mReport.requests.size() && *drawn < most; ++i) {
        if (mReport.requests[i].controller != mController) {
            continue;
        }
        const Row row = place(i, &worker_free);
        if (panels.empty() || panels.back().rows.size() >= kRowsPerPanel || row.wait - panels.back().to > kQuietSec) {
            Panel fresh;
            fresh.from = row.wait;
            panels.push_back(std::move(fresh));
        }
        Panel& panel = panels.back();
        panel.from = std::min(panel.from, row.wait);
        panel.to = std::max({panel.to, row.end, row.wait});
        panel.rows.push_back(row);
        ++*drawn;
    }
    for (Panel& panel : panels) {
        panel.to = panel.from + std::max((panel.to - panel.from) * 1.01, 0.001);
    }
    return panels;
}

std::string Waterfall::html(size_t most, size_t* drawn) const {
    std::string out;
    for (const Panel& panel : panels(most, drawn)) {
        const auto at = [this](double seconds) {
            return timeText(mReport.fromUs + static_cast<int64_t>(seconds * kUsPerSecond), 0);
        };
        out += "<figure><figcaption>" + at(panel.from) + ", " + std::to_string(panel.rows.size()) +
               (panel.rows.size() == 1 ? " request in " : " requests in ") + duration(panel.to - panel.from) +
               "</figcaption>\n<div>" + svg(panel) + "</div></figure>\n";
    }
    return out;
}

std::string Waterfall::svg(const Panel& panel) const {
    const double height = kAxisHeight + kRowHeight * static_cast<double>(panel.rows.size());
    std::string out = "<svg role=\"img\" aria-label=\"waterfall of " + std::to_string(panel.rows.size()) +
                      " requests\" width=\"100%\" height=\"" + number(height) + "\">\n";
    out += axis(panel, height);
    double top = kAxisHeight;
    for (const Row& each : panel.rows) {
        out += row(panel, each, top);
        top += kRowHeight;
    }
    return out + wedges(panel, height) + "</svg>\n";
}

/// Four or so lines at round times since the panel's beginning.
std::string Waterfall::axis(const Panel& panel, double height) const {
    const double span = panel.to - panel.from;
    double step = std::pow(10.0, std::floor(std::log10(span / 4)));
    for (const double factor : {10.0, 5.0, 2.0}) {
        if (span / (step * factor) >= 3) {
            step *= factor;
            break;
        }
    }
    std::string out;
    for (int i = 0; step * i < span * 0.95; ++i) {
        const std::string x = percent(panel.from + step * i, panel.from, panel.to);
        out.append("<line class=\"g\" x1=\"").append(x).append("%\" x2=\"").append(x);
        out.append("%\" y1=\"0\" y2=\"").append(number(height)).append("\"/><text class=\"a\" x=\"").append(x);
        out.append("%\" dx=\"3\" y=\"13\">").append(tick(step * i)).append("</text>\n");
    }
    return out;
}

std::string Waterfall::wedges(const Panel& panel, double height) const {
    std::string out;
    for (const Wedge& wedge : mReport.wedges) {
        const double from = since(wedge.fromUs);
        const double to = wedge.untilUs ? since(*wedge.untilUs) : since(mReport.toUs);
        if (wedge.controller != mController || to < panel.from || from > panel.to) {
            continue;
        }
        const double left = std::clamp((from - panel.from) / (panel.to - panel.from), 0.0, 1.0) * 100;
        const double right = std::clamp((to - panel.from) / (panel.to - panel.from), 0.0, 1.0) * 100;
        out += "<g class=\"wedge\"><title>wedged: nothing is served</title><rect x=\"" + number(left) +
               "%\" y=\"0\" width=\"" + number(std::max(right - left, kNarrowestPercent)) + "%\" height=\"" +
               number(height) + "\"/><text x=\"" + number(left) + "%\" dx=\"3\" y=\"" + number(height - 5) +
               "\">wedged</text></g>\n";
    }
    return out;
}

std::string Waterfall::row(const Panel& panel, const Row& row, double top) const {
    const Request& request = mReport.requests[row.request];
    std::string title;
    std::string bars;
    const auto bar = [&](const Part& part, double from, double to) {
        if (!(to > from)) {
            return;
        }
        const double left = std::clamp((from - panel.from) / (panel.to - panel.from), 0.0, 1.0) * 100;
        const double width = std::max((to - from) / (panel.to - panel.from) * 100, kNarrowestPercent);
        bars += std::string("<rect class=\"") + part.style + "\" x=\"" + number(left) + "%\" y=\"" + number(top + 18) +
                "\" width=\"" + number(std::min(width, 100 - left)) + "%\" height=\"" + number(kBarHeight) + "\"/>";
        title += std::string("\n") + part.name + " " + duration(to - from);
    };
    bar(kWait, row.wait, row.begin);
    if (request.timing) {
        const Phases phases = phasesOf(*request.timing);
        double at = row.begin;
        const auto span = [&](const Part& part, std::optional<double> seconds) {
            bar(part, at, at + seconds.value_or(0));
            at += seconds.value_or(0);
        };
        span(kName, phases.name);
        span(kConnect, phases.connect);
        span(kTls, phases.tls);
        span(kFirstByte, phases.firstByte);
        span(kReceive, phases.receive);
    } else {
        bar(kUnknown, row.begin, row.end);
    }
    if (bars.empty()) {  // too short for the stamps: a dot, so that it is seen at all
        bars = "<circle class=\"d\" cx=\"" + percent(row.begin, panel.from, panel.to) + "%\" cy=\"" +
               number(top + 18 + kBarHeight / 2) + "\" r=\"4\"/>";
    }
    const std::string outcome = mReport.outcomeText(request);
    const std::string who = (request.client.empty() ? std::string("unknown client") : request.client) +
                            (request.txId ? " " + std::to_string(*request.txId) : std::string());
    const std::string what = request.method + " " + request.url;
    const bool short_outcome = request.outcome == Outcome::kResult;
    return "<g><title>" + escaped(who + " " + what) + escaped(": " + outcome) + "\n" +
           timeText(request.beginUs(), mReport.timeDigits()) + title + "</title><text x=\"0\" y=\"" + number(top + 13) +
           "\"><tspan class=\"" + (isGood(request) ? "ok" : "bad") + "\">" +
           escaped(shortened(printable(short_outcome ? outcome : outcomeName(request.outcome)), 32)) +
           (request.wedge ? " \u2013 WEDGED" : "") + "</tspan> <tspan class=\"who\">" +
           escaped(shortened(printable(who), 40)) + "</tspan> " + escaped(shortened(printable(what), 160)) + "</text>" +
           bars + "</g>\n";
}

std::string Waterfall::legend() {
    std::string out = "<ul class=\"legend\">";
    for (const Part& part : {kWait, kName, kConnect, kTls, kFirstByte, kReceive, kUnknown}) {
        out += std::string("<li><svg width=\"14\" height=\"10\" aria-hidden=\"true\"><rect class=\"") + part.style +
               "\" width=\"14\" height=\"10\"/></svg> " + part.name + "</li>";
    }
    return out + "</ul>\n";
}

}  // namespace mqctl::report
