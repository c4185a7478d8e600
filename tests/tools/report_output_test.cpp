// What is made of a report: text, page, HAR, JSON.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "ReportLog.h"
#include "XmlWalk.h"
#include "report/HtmlReport.h"
#include "report/JsonReport.h"
#include "report/ReportText.h"
#include "report/Summary.h"
#include "report/TextTable.h"

namespace mqctl::report {
namespace {

using nlohmann::json;
using testing::HasSubstr;
using testing::Not;

constexpr const char* kCs = "inet-agent-cs";

/// One of each kind, and a client that puts everything harmful into its name and URL.
Report mixed() {
    LogWriter log;
    log.line(45, 'I', "[inet-agent-cs] Client controller entering event loop");
    log.arrival(44, "wifi", 1, "POST").at("12:03:01.500").job(kCs, "wifi", 1, "POST", "https://h/a?x=1&y");
    log.line(50, 'D', "[inet-agent-cs-worker] post header [Content-Type: text/plain]");
    log.line(50, 'D', "[inet-agent-cs-worker] post header [Content-length: 2700]").result(kCs, 200);
    const std::string hostile = "<script>alert(1)</script>\"'&\x1b[31m\x01\xff\xc0\xaf\u202e]]>";
    log.job(kCs, hostile, 2, "GET", "javascript:\"><img src=x onerror=alert(1)>&" + hostile);
    log.line(50, 'W', "[inet-agent-cs-worker] curl error 3: [" + hostile + "]");
    log.line(50, 'I',
             "[inet-agent-cs-worker] inet time report: name 0.0000, connect 0.0000, app 0.0000, tx 0.0000, "
             "total 0.5000, dl 0");
    log.job(kCs, hostile, 3, "<b>").line(50, 'E', "[inet-agent-cs-worker] perform failed 6");
    log.at("12:03:09.000").line(45, 'I', "[inet-agent-cs] active job timed out");
    return log.report();
}

TEST(ReportHtmlTest, IsWellFormedAndAsksForNothingFromOutside) {
    const std::string page = htmlReport(mixed(), "<title> & \"more\"");
    std::vector<std::string> attributes;
    EXPECT_EQ(whatIsMalformed(page, &attributes), "");
    for (const std::string& attribute : attributes) {
        const std::string name = attribute.substr(0, attribute.find('='));
        EXPECT_TRUE(name != "src" && name != "href" && name != "style" && name.substr(0, 2) != "on") << attribute;
    }
    EXPECT_THAT(page, Not(HasSubstr("url(")));
    EXPECT_THAT(page, Not(HasSubstr("@import")));
    EXPECT_THAT(page, HasSubstr("prefers-color-scheme: dark"));
    EXPECT_THAT(page, HasSubstr("inet-agent-cs was wedged</b> from 2024-06-14 12:03:09"));
    EXPECT_THAT(page, HasSubstr("\\x1b[31m\\x01\\xff\\xc0\\xaf\\u{202e}]]&gt;"));
}

TEST(ReportHtmlTest, LongLogIsDrawnInPartAndSaysSo) {
    LogWriter log;
    for (int i = 0; i < 2100; ++i) {
        log.job(kCs, "a", i).result(kCs, 200);
    }
    const std::string page = htmlReport(log.report(), "long");
    std::vector<std::string> attributes;
    EXPECT_EQ(whatIsMalformed(page, &attributes), "");
    EXPECT_THAT(page, HasSubstr("Only the first 2000 of 2100 requests are drawn."));
}

TEST(ReportHarTest, HasEveryFieldThatViewersAskFor) {
    const json har = json::parse(dumpJson(harReport(mixed()), true));
    const json& log = har.at("log");
    EXPECT_EQ(log.at("version"), "1.2");
    EXPECT_EQ(log.at("creator").at("name"), "mqctl");
    EXPECT_TRUE(log.at("creator").at("version").is_string());
    EXPECT_EQ(log.at("pages").at(0).at("id"), kCs);
    EXPECT_EQ(log.at("entries").size(), 2U) << "the third has no URL";
    std::string previous;
    for (const json& entry : log.at("entries")) {
        const std::string started = entry.at("startedDateTime");
        EXPECT_THAT(started, testing::MatchesRegex("....-..-..T..:..:......[+-]..:.."));
        EXPECT_LE(previous, started);
        previous = started;
        EXPECT_TRUE(entry.at("cache").is_object());
        const json& request = entry.at("request");
        for (const char* name : {"method", "url", "httpVersion"}) {
            EXPECT_TRUE(request.at(name).is_string()) << name;
        }
        const json& response = entry.at("response");
        for (const char* name : {"statusText", "httpVersion", "redirectURL"}) {
            EXPECT_TRUE(response.at(name).is_string()) << name;
        }
        for (const json* message : {&request, &response}) {
            EXPECT_TRUE(message->at("cookies").is_array() && message->at("headers").is_array());
            EXPECT_TRUE(message->at("headersSize").is_number() && message->at("bodySize").is_number());
        }
        EXPECT_TRUE(request.at("queryString").is_array());
        EXPECT_TRUE(response.at("content").at("size").is_number());
        EXPECT_TRUE(response.at("content").at("mimeType").is_string());
        double sum = 0;
        for (const char* name : {"blocked", "dns", "connect", "send", "wait", "receive"}) {
            const double part = entry.at("timings").at(name);
            EXPECT_TRUE(part >= 0 || part == -1) << name;
            sum += part > 0 ? part : 0;
        }
        EXPECT_NEAR(entry.at("time"), sum, 1e-6);
        for (const auto& item : entry.items()) {
            EXPECT_NE(item.key().front(), '_');
        }
    }
    const json& first = log.at("entries").at(0);
    EXPECT_EQ(
        first.at("timings"),
        json::parse(R"({"blocked":500.0,"dns":2.0,"connect":39.0,"ssl":28.0,"send":0,"wait":39.0,"receive":12.0})"));
    EXPECT_EQ(first.at("request").at("queryString").at(1), json::parse(R"({"name":"y","value":""})"));
    EXPECT_EQ(first.at("request").at("bodySize"), 2700);
    EXPECT_EQ(first.at("request").at("postData").at("mimeType"), "text/plain");
    EXPECT_EQ(first.at("response").at("content").at("size"), 42);
    EXPECT_EQ(log.at("entries").at(1).at("response").at("status"), 0);
    EXPECT_EQ(log.at("entries").at(1).at("timings").at("dns"), -1);
}

TEST(ReportTableTest, HostileTextNeverReachesTheTerminal) {
    const Report report = mixed();
    for (const std::string& text : {textTable(report, {true, true, 0}), textTable(report, {true, true, 80}),
                                    summaryText(report), dumpJson(jsonReport(report), false)}) {
        for (const char c : text) {
            EXPECT_TRUE(static_cast<unsigned char>(c) >= 0x20 || c == '\n');
        }
        EXPECT_EQ(printable(text.substr(0, text.find('\n'))), text.substr(0, text.find('\n')));
        EXPECT_THAT(text, Not(HasSubstr("\u202e")));
    }
    const std::string narrow = textTable(report, {true, true, 80});
    for (size_t at = 0; at < narrow.size(); at = narrow.find('\n', at) + 1) {
        EXPECT_LE(columns(narrow.substr(at, narrow.find('\n', at) - at)), 80U);
    }
}

TEST(ReportTextTest, FormsAreExact) {
    EXPECT_EQ(printable("a\xe2\x82\xac\xe2\x82\n\x7f\xed\xa0\x80\xf4\x90\x80\x80"),
              "a\u20ac\\xe2\\x82\\x0a\\x7f\\xed\\xa0\\x80\\xf4\\x90\\x80\\x80");
    EXPECT_EQ(withoutSecrets("https://u:p@h:1/a@b?k=s#f"), "https://h:1/a@b");
    EXPECT_EQ(withoutSecrets("nothing"), "nothing");
    EXPECT_EQ(shortened("a\u20acb\u20ac", 4), "a\u20acb\u20ac");
    EXPECT_EQ(shortened("a\u20acb\u20acc", 3), "a\u20ac\u2026");
    const Percentiles p = percentilesOf({5, 1, 2, 3, 4, 6, 7, 8, 9, 10});
    EXPECT_EQ(p.p50, 5);
    EXPECT_EQ(p.p90, 9);
    EXPECT_EQ(p.p99, 10);
    EXPECT_EQ(percentilesOf({}).count, 0U);
}

}  // namespace
}  // namespace mqctl::report
