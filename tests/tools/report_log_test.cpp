// How lines are taken apart: the four forms, and times without a year.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ReportLog.h"
#include "report/LogEvent.h"

namespace mqctl::report {
namespace {

struct FormCase {
    const char* name;
    const char* raw;
    LogForm form;
    const char* time;  // with the fraction
};

void PrintTo(const FormCase& form, std::ostream* out) {
    *out << form.name;
}

class LogFormTest : public testing::TestWithParam<FormCase> {};

TEST_P(LogFormTest, GivesTheSameParts) {
    const auto line = readLogLine(GetParam().raw);
    ASSERT_TRUE(line);
    EXPECT_EQ(line->form, GetParam().form);
    EXPECT_EQ(line->pid, 1977);
    EXPECT_EQ(line->tid, 2035);
    EXPECT_EQ(line->priority, 'I');
    EXPECT_EQ(line->tag, "KVIA");
    EXPECT_EQ(line->text, "[inet-agent-cs-worker] URL:  http://h/a: b");
    if (!line->stamp.epochUs) {
        const int64_t us = resolveStamps({line->stamp}, june2024()).front();
        EXPECT_EQ(timeText(us, 6, true), GetParam().time);
    } else {
        EXPECT_EQ(*line->stamp.epochUs, 1700000000123456);
    }
}

#define REST "KVIA    : [inet-agent-cs-worker] URL:  http://h/a: b"
#define PLAIN "KVIA I 01-21 07:25:50  1977  2035 [inet-agent-cs-worker] URL:  http://h/a: b"

INSTANTIATE_TEST_SUITE_P(
    Forms, LogFormTest,
    testing::Values(
        FormCase{"threadtime", "01-21 07:25:50.123  1977  2035 I " REST, LogForm::kLogcat,
                 "2024-01-21 07:25:50.123000"},
        FormCase{"year and microseconds", "2023-01-21 07:25:50.123456  1977  2035 I " REST "\r", LogForm::kLogcat,
                 "2023-01-21 07:25:50.123456"},
        FormCase{"epoch", "1700000000.123456  1977  2035 I " REST, LogForm::kLogcat, ""},
        FormCase{"user", "01-21 07:25:50.123 gps  1977  2035 I " REST, LogForm::kLogcat, "2024-01-21 07:25:50.123000"},
        FormCase{"numbered user", "01-21 07:25:50.123 1021  1977  2035 I " REST, LogForm::kLogcat,
                 "2024-01-21 07:25:50.123000"},
        FormCase{"plain", PLAIN, LogForm::kPlain, "2024-01-21 07:25:50.000000"},
        FormCase{"ts", "Jan  1 07:25:51 " PLAIN, LogForm::kStamped, "2024-01-01 07:25:51.000000"},
        FormCase{"ts with a date", "2024-01-21T07:25:51.5 " PLAIN, LogForm::kStamped, "2024-01-21 07:25:51.500000"},
        FormCase{"ts with a clock", "07:25:50.25 " PLAIN, LogForm::kStamped, "2024-01-21 07:25:50.250000"},
        FormCase{"ts since the start", "00:00:02.25 " PLAIN, LogForm::kStamped, "2024-01-21 07:25:50.000000"},
        FormCase{"journal as text", "Jan 21 07:25:50.654321 host inet-agent[1977]: " PLAIN, LogForm::kStamped,
                 "2024-01-21 07:25:50.654321"},
        FormCase{"journal", R"({"__REALTIME_TIMESTAMP":"1700000000123456","_PID":"1","MESSAGE":")" PLAIN "\"}",
                 LogForm::kJournal, ""},
        FormCase{"journal, another writer",
                 R"({"__REALTIME_TIMESTAMP":"1700000000123456","_PID":"1977","TID":"2035","PRIORITY":"6",)"
                 R"("SYSLOG_IDENTIFIER":"KVIA","MESSAGE":"[inet-agent-cs-worker] URL:  http://h/a: b"})",
                 LogForm::kJournal, ""}));

TEST(LogLineTest, TakesJournalBytesThatAreNoText) {
    const auto line = readLogLine(
        R"({"__REALTIME_TIMESTAMP":"1700000000123456","_PID":"7","SYSLOG_IDENTIFIER":"KVIA","MESSAGE":[91,255,93]})");
    ASSERT_TRUE(line);
    EXPECT_EQ(line->text, "[\xff]");
}

TEST(LogLineTest, RefusesWhatIsNoLine) {
    for (const char* raw :
         {"", "\n", "hello", "{", "{}", "[]", "{\"MESSAGE\":null,\"__REALTIME_TIMESTAMP\":\"1\"}x",
          "--------- beginning of main", "KVIA I 13-41 07:25:50 1 2 x", "KVIA X 01-21 07:25:50 1 2 x",
          "01-21 07:25:50.123 1977", "01-21 07:25:50.123 1977 2035 I", "99999999999999999999 1 2 I T: x",
          "KVIA I 01-21 07:25:50 99999999999 2 x", "{\"MESSAGE\":{\"a\":1},\"_PID\":4}"}) {
        EXPECT_FALSE(readLogLine(raw)) << raw;
    }
}

TEST(LogStampTest, YearRollsOverAndIsNeverInTheFuture) {
    const auto resolved = [](std::initializer_list<const char*> texts) {
        std::vector<LogStamp> stamps;
        for (std::string_view text : texts) {
            stamps.push_back(takeStamp(&text).value_or(LogStamp()));
        }
        std::vector<std::string> out;
        for (const int64_t us : resolveStamps(stamps, june2024())) {
            out.push_back(timeText(us, 0, true).substr(0, 10));
        }
        return out;
    };
    using testing::ElementsAre;
    EXPECT_THAT(resolved({"12-31 23:59:59", "01-01 00:00:00", "12-31 23:59:59.9", "01-01 00:00:01"}),
                ElementsAre("2023-12-31", "2024-01-01", "2023-12-31", "2024-01-01"));
    EXPECT_THAT(resolved({"06-30 00:00:00"}), ElementsAre("2023-06-30"));
    EXPECT_THAT(resolved({"12-01 00:00:00", "02-01 00:00:00", "12-02 00:00:00"}),
                ElementsAre("2023-12-01", "2024-02-01", "2023-12-02"));
}

TEST(LogEventTest, TextsOfClientsCannotPassForOthers) {
    const auto event = [](const std::string& text) {
        LogLine line;
        line.tag = "KVIA";
        line.text = text;
        return readLogEvent(line);
    };
    const auto reply = event("[cs] error response for [a][b][GET][-7][queued job timed out before execution]");
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->reply.client, "a][b");
    EXPECT_EQ(reply->reply.txId, -7);
    const auto error = event("[cs-worker] curl error 7: [a] [b]]");
    ASSERT_TRUE(error);
    EXPECT_EQ(error->text, "a] [b]");
    for (const char* text : {"[cs] error response for [a][GET][7][cut", "[cs-worker] HTTP response code: 2x",
                             "[cs-worker] inet time report: name 0.1, connect", "[cs-worker] inet begin now", "no tag",
                             "[cs-worker] inet time report: name -1, connect 0, app 0, tx 0, total 0, dl 0"}) {
        EXPECT_FALSE(event(text)) << text;
    }
}

}  // namespace
}  // namespace mqctl::report
