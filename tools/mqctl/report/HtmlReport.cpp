#include "report/HtmlReport.h"

#include "report/LogStamp.h"
#include "report/ReportText.h"
#include "report/Summary.h"
#include "report/Waterfall.h"

namespace mqctl::report {

namespace {

/// Pages beyond this are no pleasure in any browser; the page says what it left out.
constexpr size_t kMostDrawn = 2000;
constexpr size_t kMostListed = 5000;

// No "<" and no "&" in here: the page is XML, too.
constexpr const char* kStyle = R"(
:root { color-scheme: light dark; --bg: #fff; --fg: #1c1e21; --soft: #5c6370; --line: #dfe2e8; --card: #f5f6f8;
  --ok: #1a7f37; --bad: #c0261c; --w: #c3c8d1; --n: #8a63d2; --c: #e08a1e; --t: #c9559b; --f: #3f9a52; --r: #2f75d6;
  --u: #8b929e; --wedge: #d92d20; }
@media (prefers-color-scheme: dark) { :root { --bg: #14161a; --fg: #e4e6ea; --soft: #9aa2af; --line: #2e333b;
  --card: #1d2026; --ok: #56d364; --bad: #ff7b72; --w: #4a515c; --n: #a98bea; --c: #f0a64a; --t: #e07bb8; --f: #5dbd70;
  --r: #5a9bf5; --u: #767e8b; --wedge: #ff6a5e; } }
* { box-sizing: border-box; }
body { margin: 0 auto; padding: 1rem; max-width: 75rem; background: var(--bg); color: var(--fg);
  font: 15px/1.5 system-ui, sans-serif; overflow-wrap: anywhere; }
h1 { font-size: 1.4rem; margin: 0 0 .2rem; } h2 { font-size: 1.15rem; margin: 2rem 0 .3rem; }
p { margin: .3rem 0; } .soft, figcaption, .a { color: var(--soft); fill: var(--soft); }
.alert { border: 1px solid var(--wedge); border-left-width: 6px; border-radius: 6px; padding: .6rem .9rem;
  margin: 1rem 0; }
.alert b { color: var(--wedge); }
.tiles { display: grid; grid-template-columns: repeat(auto-fit, minmax(8.5rem, 1fr)); gap: .6rem; margin: 1rem 0; }
.tiles div { background: var(--card); border-radius: 6px; padding: .5rem .8rem; }
.tiles b { display: block; font-size: 1.4rem; line-height: 1.3; }
.legend { list-style: none; display: flex; flex-wrap: wrap; gap: .2rem 1rem; padding: 0; margin: .5rem 0;
  font-size: .85rem; color: var(--soft); }
figure { margin: .6rem 0 1.4rem; } figcaption { font-size: .85rem; margin-bottom: .2rem; }
figure div { background: var(--card); border-radius: 6px; padding: .4rem .7rem; }
figure svg { display: block; overflow: hidden; }
svg text { font: 12px system-ui, sans-serif; fill: var(--fg); } svg text.a { font-size: 11px; fill: var(--soft); }
.g { stroke: var(--line); } .ok { fill: var(--ok); color: var(--ok); font-weight: 600; }
.bad { fill: var(--bad); color: var(--bad); font-weight: 600; } .who { font-weight: 600; }
.w { fill: var(--w); } .n { fill: var(--n); } .c { fill: var(--c); } .t { fill: var(--t); } .f { fill: var(--f); }
.r { fill: var(--r); } .u { fill: var(--u); } .d { fill: var(--bad); }
.wedge text { fill: var(--wedge); font-weight: 600; } .wedge rect { fill: var(--wedge); fill-opacity: .13; }
.scroll { overflow-x: auto; } table { border-collapse: collapse; font-size: .85rem; white-space: nowrap; }
th, td { text-align: left; padding: .25rem .6rem; border-bottom: 1px solid var(--line); vertical-align: top; }
th { color: var(--soft); font-weight: 600; } .num { text-align: right; font-variant-numeric: tabular-nums; }
td.text { white-space: normal; min-width: 22rem; }
td.name { white-space: normal; min-width: 7rem; max-width: 14rem; } summary { cursor: pointer; margin: 1.5rem 0 .5rem; }
)";

std::string cell(const std::string& text, const char* style = nullptr) {
    return (style != nullptr ? std::string("<td class=\"") + style + "\">" : std::string("<td>")) +
           (text.empty() ? "\u2013" : escaped(text)) + "</td>";
}

std::string head(const std::string& title) {
    // The policy makes a browser refuse whatever a mistake of ours might let through.
    return "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\"/>\n"
           "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; style-src 'unsafe-inline'\"/>\n"
           "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\"/>\n"
           "<meta name=\"color-scheme\" content=\"light dark\"/>\n<title>" +
           escaped(title) + "</title>\n<style>" + kStyle + "</style>\n</head>\n<body>\n";
}

std::string wedgeAlert(const Report& report, const Wedge& wedge) {
    const Request& cause = report.requests[wedge.request];
    std::string out = "<div class=\"alert\" role=\"alert\"><b>" + escaped(wedge.controller) + " was wedged</b> from " +
                      timeText(wedge.fromUs, report.timeDigits(), true);
    if (!wedge.untilUs) {
        out += " to the end of this log";
    } else {
        out += " to " + timeText(*wedge.untilUs, report.timeDigits(), true) +
               (wedge.freed ? ", when a result from outside freed it" : ", when the agent ended");
    }
    out += ". It served nothing: " + std::to_string(wedge.expired) + (wedge.expired == 1 ? " request" : " requests") +
           " expired in its queue meanwhile. The cause is the request ";
    out += escaped((cause.client.empty() ? std::string("of an unknown client") : "of " + cause.client) +
                   (cause.txId ? ", TX-ID " + std::to_string(*cause.txId) : std::string()) +
                   (cause.method.empty() ? std::string() : ", REQ " + cause.method));
    if (cause.performFailed) {
        out += ": the worker rejected it with code " + std::to_string(*cause.performFailed) + " (" +
               escaped(rejectionText(cause)) + ")";
    }
    return out +
           ", so that no result followed. A restart of the agent is the cure, or \"mqctl repair\"; "
           "REPLY_TO_REJECTED_REQUESTS = 1 in its configuration prevents it.</div>\n";
}

std::string tiles(const Report& report, const Summary& summary) {
    std::string out = "<div class=\"tiles\">";
    const auto tile = [&out](const std::string& value, const std::string& name) {
        out += "<div><b>" + escaped(value) + "</b>" + escaped(name) + "</div>";
    };
    tile(std::to_string(report.requests.size()), "requests");
    for (size_t i = 0; i < kOutcomes; ++i) {
        if (summary.outcomes[i] > 0) {
            tile(std::to_string(summary.outcomes[i]), outcomeName(static_cast<Outcome>(i)));
        }
    }
    for (const auto& [status, count] : summary.statuses) {
        tile(std::to_string(count), "with HTTP status " + std::to_string(status));
    }
    return out + "</div>\n";
}

std::string figures(const Summary& summary) {
    if (summary.figures.empty()) {
        return "";
    }
    std::string out =
        "<h2>How long it took</h2>\n<div class=\"scroll\"><table><thead><tr><th>part</th><th class=\"num\">count</th>"
        "<th class=\"num\">median</th><th class=\"num\">90 %</th><th class=\"num\">99 %</th>"
        "<th class=\"num\">longest</th></tr></thead><tbody>\n";
    for (const auto& figure : summary.figures) {
        const Percentiles& p = figure.seconds;
        out += "<tr>" + cell(figure.name) + cell(std::to_string(p.count), "num");
        for (const double value : {p.p50, p.p90, p.p99, p.max}) {
            out += cell(duration(value), "num");
        }
        out += "</tr>\n";
    }
    return out + "</tbody></table></div>\n";
}

std::string waterfalls(const Report& report) {
    std::string out = Waterfall::legend();
    size_t drawn = 0;
    for (const std::string& name : report.controllers()) {
        out += "<section>\n<h2>" + (name.empty() ? std::string("Unknown controller") : escaped(name)) + "</h2>\n" +
               Waterfall(report, name).html(kMostDrawn, &drawn) + "</section>\n";
    }
    if (drawn < report.requests.size()) {
        out += "<p class=\"soft\">Only the first " + std::to_string(drawn) + " of " +
               std::to_string(report.requests.size()) + " requests are drawn.</p>\n";
    }
    return out;
}

std::string list(const Report& report) {
    std::string out = "<details" + std::string(report.requests.size() <= 50 ? " open=\"open\"" : "") +
                      "><summary>All requests in figures</summary>\n<div class=\"scroll\"><table><thead><tr>";
    for (const char* heading : {"start", "controller", "client", "TX-ID", "REQ"}) {
        out += std::string("<th>") + heading + "</th>";
    }
    for (const char* heading : {"wait", "name", "connect", "TLS", "first byte", "total", "bytes"}) {
        out += std::string("<th class=\"num\">") + heading + "</th>";
    }
    out += "<th>result</th><th>URL</th></tr></thead><tbody>\n";
    for (size_t i = 0; i < report.requests.size() && i < kMostListed; ++i) {
        const Request& request = report.requests[i];
        const Timing timing = request.timing.value_or(Timing());
        const auto wait = request.waitSec();
        const bool good = request.outcome == Outcome::kResult && request.httpStatus.value_or(0) < 400;
        out += "<tr>" + cell(timeText(request.beginUs(), report.timeDigits())) + cell(request.controller) +
               cell(request.client, "name") + cell(request.txId ? std::to_string(*request.txId) : "") +
               cell(request.method) + cell(wait ? fixed(*wait, report.timeDigits()) : "", "num");
        for (const double value : {timing.name, timing.connect, timing.app, timing.firstByte}) {
            out += cell(value > 0 ? fixed(value, 4) : "", "num");
        }
        out += cell(request.timing ? fixed(timing.total, 4) : "", "num") +
               cell(request.timing ? std::to_string(timing.bytes) : "", "num") + "<td class=\"text\"><span class=\"" +
               (good ? "ok" : "bad") + "\">" + escaped(report.outcomeText(request)) + "</span></td>" +
               cell(request.url, "text") + "</tr>\n";
    }
    out += "</tbody></table></div>\n";
    if (report.requests.size() > kMostListed) {
        out += "<p class=\"soft\">Only the first " + std::to_string(kMostListed) + " are listed.</p>\n";
    }
    return out +
           "<p class=\"soft\">Seconds. Name, connect, TLS, first byte and total count from the beginning of the "
           "transfer; a followed redirect is within them.</p>\n</details>\n";
}

}  // namespace

std::string htmlReport(const Report& report, const std::string& title) {
    const Summary summary = summaryOf(report);
    std::string out = head(title) + "<h1>" + escaped(title) + "</h1>\n<p class=\"soft\">" +
                      timeText(report.fromUs, 0, true) + " to " + timeText(report.toUs, 0, true) + ", " +
                      std::to_string(report.runs.size()) +
                      (report.runs.size() == 1 ? " run of the agent" : " runs of the agent") + "</p>\n";
    for (const Wedge& wedge : report.wedges) {
        out += wedgeAlert(report, wedge);
    }
    out += tiles(report, summary);
    if (!report.notes.empty()) {
        out += "<ul class=\"soft\">";
        for (const std::string& note : report.notes) {
            out += "<li>" + escaped(note) + "</li>";
        }
        out += "</ul>\n";
    }
    return out + waterfalls(report) + figures(summary) + list(report) + "</body>\n</html>\n";
}

}  // namespace mqctl::report
