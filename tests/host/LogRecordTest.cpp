// The host's record of logged lines: kept for callers that read it back, dropped and no longer
// kept when a caller turns it off (the sink hears every line either way), and bounded so that
// a long session does not grow without end.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "HostTesting.h"

namespace {

class LogRecord : public ::testing::Test {
protected:
    void SetUp() override {
        orvhost::RecordLog(true);
        orvhost::ClearLog();
    }
    void TearDown() override {
        orvhost::TheHost().logSink = nullptr;
        orvhost::RecordLog(true);
        orvhost::ClearLog();
    }
};

}  // namespace

TEST_F(LogRecord, LinesAreKeptWithTheirSeverity) {
    ORV::Application().LogMessage(L"first", ORV::ovWarning);
    ORV::Application().LogMessage(L"second", ORV::ovError);
    ASSERT_EQ(orvhost::LogEntries().size(), 2u);
    EXPECT_EQ(orvhost::LogEntries()[0].text, L"first");
    EXPECT_EQ(orvhost::LogEntries()[0].severity, ORV::ovWarning);
    EXPECT_EQ(orvhost::LogTexts(ORV::ovError), std::vector<std::wstring>{L"second"});
}

TEST_F(LogRecord, TurnedOffDropsTheRecordAndKeepsNothingButTheSinkHearsAll) {
    std::vector<std::wstring> heard;
    orvhost::TheHost().logSink = [&](const orvhost::LogEntry& e) { heard.push_back(e.text); };
    ORV::Application().LogMessage(L"kept", ORV::ovInfo);
    orvhost::RecordLog(false);
    EXPECT_TRUE(orvhost::LogEntries().empty());
    ORV::Application().LogMessage(L"not kept", ORV::ovInfo);
    EXPECT_TRUE(orvhost::LogEntries().empty());
    EXPECT_EQ(heard, (std::vector<std::wstring>{L"kept", L"not kept"}));
    orvhost::RecordLog(true);
    ORV::Application().LogMessage(L"kept again", ORV::ovInfo);
    EXPECT_EQ(orvhost::LogTexts(), std::vector<std::wstring>{L"kept again"});
}

TEST_F(LogRecord, RecordKeepsOnlyTheNewestLinesOfALongSession) {
    const std::size_t lines = orvhost::kRecordLimit * 2 + 7;
    for (std::size_t i = 0; i < lines; ++i) orvhost::TheHost().Log(std::to_wstring(i), ORV::ovInfo);
    const std::vector<orvhost::LogEntry>& log = orvhost::LogEntries();
    EXPECT_LE(log.size(), orvhost::kRecordLimit);
    EXPECT_GE(log.size(), orvhost::kRecordLimit / 2);
    // The newest lines, in order, without a gap.
    EXPECT_EQ(log.back().text, std::to_wstring(lines - 1));
    for (std::size_t k = 1; k < log.size(); ++k)
        ASSERT_EQ(std::stoul(log[k].text), std::stoul(log[k - 1].text) + 1) << k;
}

TEST_F(LogRecord, QuestionsAndMessageBoxesAreBoundedToo) {
    orvhost::ClearAnswers();
    const std::size_t boxes = orvhost::kRecordLimit + 3;
    ORV::UIToolkit kit = ORV::Application().GetUIToolkit();
    for (std::size_t i = 0; i < boxes; ++i) {
        long result = 0;
        kit.MsgBox(ORV::CString(std::to_wstring(i).c_str()), ORV::ovMsgOkOnly, L"", result);
    }
    EXPECT_LE(orvhost::MessageBoxes().size(), orvhost::kRecordLimit);
    EXPECT_EQ(orvhost::MessageBoxes().back().text, std::to_wstring(boxes - 1));
    EXPECT_LE(orvhost::Questions().size(), orvhost::kRecordLimit);
    orvhost::ClearAnswers();
}
