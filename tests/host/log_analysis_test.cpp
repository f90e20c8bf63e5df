#include "velto-host/portable/log_analysis.h"

#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "velto-host/portable/log_report.h"

namespace velto::host {
namespace {

using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

enum class Loggers { BOTH, CHANNEL_ONLY, PROCESS_WIDE_ONLY };

// Writes lines as the module does, at a time that the test advances.
class Log {
public:
    explicit Log(Loggers loggers = Loggers::BOTH) : m_loggers(loggers) {}

    Log &Error(const std::string &message, uint32_t thread = 7) { return Write("error", message, thread); }
    Log &Info(const std::string &message, uint32_t thread = 7) { return Write("info", message, thread); }
    Log &Build(const std::string &text) { return Line("info", "Logging", "LibVeltoAudioHandler " + text, 7); }
    Log &Cushion() { return Info("needDelay. push all delay buffer queue"); }
    Log &Padding(uint32_t thread = 20) { return Error("AudioPlayerWas padding = 0 ", thread); }
    Log &Raw(const std::string &line)
    {
        m_analysis.Add(line);
        return *this;
    }
    Log &After(int64_t milliseconds)
    {
        m_nowMs += milliseconds;
        return *this;
    }
    // The module's count of calls goes to the process-wide logger alone.
    Log &Units(uint64_t counter)
    {
        return Line(
            "info", "NR",
            fmt::format(
                "VeltoWriteStream has received{} frame(`anonymous-namespace'::VeltoWriteStreamBuffer)",
                counter),
            7);
    }
    // Sends `lines` times 50 units, each at its time.
    Log &Stream(uint64_t from, int lines)
    {
        for (int i = 0; i < lines; ++i) {
            Units(from + 50 * static_cast<uint64_t>(i)).After(1067);
        }
        return *this;
    }
    LogResult Result() { return m_analysis.Finish(); }

private:
    Log &Write(const char *level, const std::string &message, uint32_t thread)
    {
        if (m_loggers != Loggers::PROCESS_WIDE_ONLY) {
            Line(level, "OceloMirror", message, thread);
        }
        if (m_loggers != Loggers::CHANNEL_ONLY) {
            Line(level, "NR", message + "(velto::Some::Function)", thread);
        }
        return *this;
    }

    Log &Line(const char *level, const char *channel, const std::string &message, uint32_t thread)
    {
        m_analysis.Add(
            fmt::format("{} [{}] [{}] [{}] {}", DateAndTimeText(m_nowMs), thread, level, channel, message));
        return *this;
    }

    Loggers m_loggers;
    LogAnalysis m_analysis;
    int64_t m_nowMs = 1'790'000'000'000;
};

uint64_t Found(const LogResult &result, RowId row)
{
    const auto finding = result.findings.find(row);
    return finding == result.findings.end() ? 0 : finding->second.count;
}

LogCounts Total(const LogResult &result)
{
    LogCounts total;
    for (const auto &[second, counts] : result.seconds) {
        total += counts;
    }
    return total;
}

std::string Text(const LogResult &result)
{
    std::string text;
    for (const std::string &line : LogReport(result, 1000)) {
        text += line + "\n";
    }
    return text;
}

LogResult ReadRecorded(const std::string &name)
{
    std::ifstream file(VELTO_SOURCE_FOLDER "/tests/host/logs/" + name, std::ios::binary);
    EXPECT_TRUE(file) << name;
    LogAnalysis analysis;
    LineSplitter lines([&](std::string_view line) { analysis.Add(line); });
    lines.Add(std::string(std::istreambuf_iterator<char>(file), {}));
    lines.Finish();
    return analysis.Finish();
}

class LogOfEitherLogger : public testing::TestWithParam<Loggers> {};

TEST_P(LogOfEitherLogger, CountsEachMessageOnce)
{
    Log log(GetParam());
    log.Cushion().Padding().After(30).Padding().After(30).Padding();
    log.Error("AUDIO decode error:-1094995529").Error("AUDIO decode error:-1094995529");
    const LogResult result = log.Result();
    EXPECT_EQ(result.messages, 6U);
    EXPECT_EQ(Found(result, RowId::NOTHING_PLAYED_YET), 1U);
    EXPECT_EQ(Found(result, RowId::UNDERRUN), 2U);
    EXPECT_EQ(Found(result, RowId::DAMAGED_UNIT), 2U);
    EXPECT_EQ(result.brokenLines, 0U);
}

INSTANTIATE_TEST_SUITE_P(All, LogOfEitherLogger,
                         testing::Values(Loggers::BOTH, Loggers::CHANNEL_ONLY, Loggers::PROCESS_WIDE_ONLY));

TEST(LogAnalysis, PairsLinesOfThreadsThatLogAtOnce)
{
    Log log;
    for (const char *line :
         {"2026-01-02 03:04:05.006 [1] [error] [OceloMirror] OnAudioStateChanged",
          "2026-01-02 03:04:05.006 [2] [error] [OceloMirror] OnAudioStateChanged",
          "2026-01-02 03:04:05.006 [2] [error] [NR] OnAudioStateChanged(AudioCapture::X)",
          "2026-01-02 03:04:05.006 [1] [error] [NR] OnAudioStateChanged(AudioCapture::X)"}) {
        log.Raw(line);
    }
    EXPECT_EQ(log.Result().messages, 2U);
}

TEST(LogAnalysis, CountsLineThatOnlyTheChannelHas)
{
    Log log(Loggers::CHANNEL_ONLY);
    log.Error("Audio device is disabled").Error("Audio device is disabled");
    EXPECT_EQ(Found(log.Result(), RowId::MICROPHONE_MUTED), 2U);
}

TEST(LogAnalysis, ListsEachBuildOnce)
{
    const LogResult result =
        Log().Build("1.0.0").After(1000).Build("1.0.0").After(1000).Build("1.0.1").Result();
    ASSERT_EQ(result.builds.size(), 2U);
    EXPECT_EQ(result.builds[0].text, "LibVeltoAudioHandler 1.0.0");
    EXPECT_EQ(result.builds[0].firstMs, result.beginMs);
    EXPECT_EQ(result.builds[1].text, "LibVeltoAudioHandler 1.0.1");
    EXPECT_EQ(result.builds[1].firstMs, result.endMs);
    EXPECT_EQ(result.messages, 3U);
    EXPECT_THAT(LogReport(result, 10), Contains(HasSubstr("LibVeltoAudioHandler 1.0.1 from ")));
    EXPECT_THAT(LogPage(result, "log"), HasSubstr("<p>LibVeltoAudioHandler 1.0.1 from "));
}

TEST(LogAnalysis, BuildBetweenTwoLinesOfMessageDoesNotSplitIt)
{
    Log log(Loggers::CHANNEL_ONLY);
    log.Error("AUDIO decode error:-1").Build("1.0.0");
    log.Raw(DateAndTimeText(1000) + " [7] [error] [NR] AUDIO decode error:-1(X::Y)");
    EXPECT_EQ(log.Result().findings.at(RowId::DAMAGED_UNIT).count, 1U);
}

TEST(LogAnalysis, DividesUnitsIntoStreamsAtPauses)
{
    Log log;
    log.Units(1).After(85).Cushion().After(1000).Stream(51, 3).After(10000).Cushion().After(500).Stream(201,
                                                                                                        2);
    const LogResult result = log.Result();
    ASSERT_EQ(result.streams.size(), 2U);
    EXPECT_EQ(result.streams[0].units, 151U);
    EXPECT_TRUE(result.streams[0].hasCushion);
    EXPECT_EQ(result.streams[1].units, 100U);
    EXPECT_TRUE(result.streams[1].hasCushion);
    EXPECT_EQ(Total(result).units, 251U);
    EXPECT_EQ(Found(result, RowId::NO_CUSHION), 0U);
}

TEST(LogAnalysis, BeginsStreamAtCushionWithoutPause)
{
    Log log;
    log.Cushion().Stream(1, 3).Cushion().Stream(151, 3);
    EXPECT_EQ(log.Result().streams.size(), 2U);
}

TEST(LogAnalysis, CushionsOfBothSpeakersBelongToOneStream)
{
    Log log;
    log.Units(1).After(85).Cushion().After(2).Cushion().After(900).Stream(51, 2);
    EXPECT_EQ(log.Result().streams.size(), 1U);
}

TEST(LogAnalysis, FindsStreamWithoutCushionAfterPause)
{
    Log log;
    log.Info("AudioPlayerWas Initialize end. BUFF_DURATIAN=3000000");
    log.Units(1).After(85).Cushion().After(1000).Stream(51, 2).After(60000).Stream(151, 3);
    const LogResult result = log.Result();
    EXPECT_EQ(Found(result, RowId::NO_CUSHION), 1U);
    EXPECT_THAT(Text(result), HasSubstr("stream 2: about 150 units, without a cushion"));
}

TEST(LogAnalysis, MissesNoCushionBeforeBeginningOfLog)
{
    Log log;
    log.Stream(5051, 4);
    const LogResult result = log.Result();
    EXPECT_EQ(Found(result, RowId::NO_CUSHION), 0U);
    EXPECT_EQ(Found(result, RowId::SPEAKER_NOT_OPENED), 0U);
    EXPECT_EQ(Total(result).units, 200U);
}

TEST(LogAnalysis, FirstEmptyBufferOnAnotherDeviceIsNoUnderrun)
{
    Log log;
    log.Cushion().Padding().After(20).Padding();
    log.Error("AudioPlayerWas OnAudioDeviceChanged", 20);
    log.Info("AudioPlayerWas Need to change default audio device.", 20).Padding().After(20).Padding();
    const LogResult result = log.Result();
    EXPECT_EQ(Found(result, RowId::NOTHING_PLAYED_YET), 2U);
    EXPECT_EQ(Found(result, RowId::UNDERRUN), 2U);
    EXPECT_EQ(result.streams.at(0).underruns, 2U);
}

TEST(LogAnalysis, SameDeviceIdIsOneChangeAndKeepsClient)
{
    Log log;
    log.Cushion().Padding();
    log.Error("AudioPlayerWas OnAudioDeviceChanged", 20).Error("AudioPlayerWas same deviceId", 20).Padding();
    const LogResult result = log.Result();
    EXPECT_EQ(Found(result, RowId::SPEAKER_CHANGED), 1U);
    EXPECT_EQ(Total(result).deviceChanges, 1U);
    EXPECT_EQ(Found(result, RowId::UNDERRUN), 1U);
}

TEST(LogAnalysis, StreamWhoseUnitsAllFailIsNotAac)
{
    Log log;
    log.Info("AudioPlayerWas Initialize end. BUFF_DURATIAN=3000000");
    for (int i = 0; i < 150; ++i) {
        if (i % 50 == 0) {
            log.Units(static_cast<uint64_t>(i) + 1);
        }
        log.Error("AUDIO decode error:-1094995529").After(21);
    }
    const LogResult result = log.Result();
    EXPECT_EQ(Found(result, RowId::NOT_AAC), 150U);
    EXPECT_EQ(Found(result, RowId::DAMAGED_UNIT), 0U);
    EXPECT_EQ(Found(result, RowId::NO_CUSHION), 0U);
    EXPECT_THAT(Text(result), HasSubstr("no unit can be decoded: error -1094995529, 150 times"));
}

TEST(LogAnalysis, TimesOfDamagedUnitsLeaveOutStreamThatIsNotAac)
{
    Log log;
    log.Cushion().Stream(1, 2).Error("AUDIO decode error:-1094995529").Stream(101, 2).After(10000);
    for (int i = 0; i < 150; ++i) {
        if (i % 50 == 0) {
            log.Units(static_cast<uint64_t>(i) + 201);
        }
        log.Error("AUDIO decode error:-1094995529").After(21);
    }
    const LogResult result = log.Result();
    EXPECT_EQ(Found(result, RowId::NOT_AAC), 150U);
    const LogFinding damaged = result.findings.at(RowId::DAMAGED_UNIT);
    EXPECT_EQ(damaged.count, 1U);
    EXPECT_EQ(damaged.lastMs, damaged.firstMs);
}

TEST(LogAnalysis, FewDecodeErrorsAreDamagedUnits)
{
    Log log;
    log.Cushion().Stream(1, 2).Error("AUDIO decode error:-1094995529").Stream(101, 2);
    const LogResult result = log.Result();
    EXPECT_EQ(Found(result, RowId::NOT_AAC), 0U);
    EXPECT_EQ(Found(result, RowId::DAMAGED_UNIT), 1U);
}

TEST(LogAnalysis, FindsSpeakerThatWasNeverOpened)
{
    Log log;
    log.Units(1).Error("AudioPlayerWas function fail with -2147023728. Release resource. Line:296").After(85);
    log.Cushion().After(900).Stream(51, 3);
    const LogResult result = log.Result();
    EXPECT_EQ(Found(result, RowId::SPEAKER_NOT_OPENED), 1U);
    EXPECT_THAT(Text(result),
                HasSubstr("step 296, finding the default endpoint: 0x80070490 (ERROR_NOT_FOUND)"));
}

TEST(LogAnalysis, NewProcessInSameLogBeginsItsOwnStream)
{
    Log log;
    for (int process = 0; process < 2; ++process) {
        log.Units(1)
            .Info("AudioPlayerWas Initialize end. BUFF_DURATIAN=3000000")
            .Cushion()
            .After(1000)
            .Units(51);
    }
    const LogResult result = log.Result();
    EXPECT_EQ(result.streams.size(), 2U);
    EXPECT_EQ(Found(result, RowId::SPEAKER_NOT_OPENED), 0U);
}

TEST(LogAnalysis, JoinsEqualEventsUntilThreeSecondsPass)
{
    Log log;
    for (int i = 0; i < 5; ++i) {
        log.Error("AudioPlayerWas CheckDeviceChanged failed audioBufferSize=14400").After(2900);
    }
    log.After(3001).Error("AudioPlayerWas CheckDeviceChanged failed audioBufferSize=14400");
    const LogResult result = log.Result();
    ASSERT_EQ(result.events.size(), 2U);
    EXPECT_EQ(result.events[0].count, 5U);
    EXPECT_EQ(result.events[0].endMs - result.events[0].beginMs, 4 * 2900);
    EXPECT_EQ(result.events[1].count, 1U);
}

TEST(LogAnalysis, CountsPerMinuteAlsoWhenClockMovesBack)
{
    Log log;
    log.Error("AudioPlayerWas OnAudioDeviceChanged")
        .After(60000)
        .Error("AudioPlayerWas OnAudioDeviceChanged");
    log.After(-60000).Error("AudioPlayerWas OnAudioDeviceChanged");
    const LogResult result = log.Result();
    const auto minutes = result.Per(60);
    ASSERT_EQ(minutes.size(), 2U);
    EXPECT_EQ(minutes.begin()->second.deviceChanges, 2U);
    EXPECT_EQ(minutes.rbegin()->second.deviceChanges, 1U);
    EXPECT_EQ(result.endMs - result.beginMs, 60000);
}

TEST(LogAnalysis, CollectsErrorsWithoutRow)
{
    Log log;
    log.Error("Set streamType failed!").Error("new fault 17 of 20").Error("new fault 18 of 20");
    const LogResult result = log.Result();
    ASSERT_EQ(result.otherErrors.size(), 2U);
    EXPECT_EQ(result.otherErrors.at("new fault # of #").count, 2U);
    EXPECT_EQ(Total(result).otherErrors, 3U);
    EXPECT_THAT(Text(result), HasSubstr("! new fault # of #: 2, from"));
}

TEST(LogAnalysis, ShortensErrorsAtBeginningOfCharacter)
{
    Log log;
    log.Error("a" + std::string(99, 'b') + "\u00E4" + std::string(97, 'c') + "\u00E4" + std::string(50, 'd'));
    const LogResult result = log.Result();
    ASSERT_EQ(result.otherErrors.size(), 1U);
    EXPECT_EQ(result.otherErrors.begin()->first,
              "a" + std::string(99, 'b') + "\u00E4" + std::string(97, 'c') + "...");
}

TEST(LogAnalysis, BoundsKindsOfOtherErrorsAndCountsAll)
{
    Log log;
    for (int i = 0; i < 1000; ++i) {
        log.Error("fault " + std::string(static_cast<size_t>(i) % 100 + 1, static_cast<char>('a' + i / 100)));
    }
    const LogResult result = log.Result();
    EXPECT_EQ(result.otherErrors.size(), LogAnalysis::mostOtherErrors);
    EXPECT_EQ(Total(result).otherErrors, 1000U);
}

TEST(LogAnalysis, CountsBrokenLinesAndReadsOthers)
{
    Log log;
    log.Raw("").Raw("half a line").Error("OnAudioStateChanged").Raw(std::string("\0\xFF[", 3));
    const LogResult result = log.Result();
    EXPECT_EQ(result.lines, 5U);
    EXPECT_EQ(result.brokenLines, 3U);
    EXPECT_THAT(result.firstBrokenLines, testing::ElementsAre(1, 2, 5));
    EXPECT_EQ(Found(result, RowId::MICROPHONE_CHANGED), 1U);
    EXPECT_THAT(Text(result), HasSubstr("3 broken lines were left out: 1, 2, 5\n"));
}

TEST(LogAnalysis, CountsAllLinesOfDamagedLogs)
{
    std::ifstream file(VELTO_SOURCE_FOLDER "/tests/host/logs/storm.log", std::ios::binary);
    const std::string whole(std::istreambuf_iterator<char>(file), {});
    std::mt19937 random(4);
    for (int round = 0; round < 30; ++round) {
        std::string damaged = whole;
        for (int i = 0; i < 300; ++i) {
            damaged[random() % damaged.size()] = static_cast<char>(random());
        }
        LogAnalysis analysis;
        LineSplitter lines([&](std::string_view line) { analysis.Add(line); });
        lines.Add(damaged);
        lines.Finish();
        const LogResult result = analysis.Finish();
        EXPECT_EQ(result.lines, static_cast<uint64_t>(std::count(damaged.begin(), damaged.end(), '\n')) +
                                    (damaged.ends_with('\n') ? 0 : 1));
        EXPECT_LE(result.brokenLines, 600U);
        EXPECT_GT(result.messages, 100U);
        EXPECT_FALSE(LogPage(result, "damaged").empty());
    }
}

TEST(LogAnalysis, ReportsRecordingWithItsRestarts)
{
    Log log;
    const auto start = [&] { log.Info("deviceEnumerator RegisterEndpointNotificationCallback"); };
    const auto stop = [&] { log.Info("AudioDeviceNotify::UnInitialize()"); };
    start();
    log.After(1000).Error("OnAudioStateChanged");
    stop();
    start();
    log.After(1000);
    stop();
    start();
    log.After(500).Error("m_bAtomStop is stop");
    const LogResult result = log.Result();
    ASSERT_EQ(result.recordings.size(), 2U);
    EXPECT_EQ(result.recordings[0].restarts, 1U);
    EXPECT_EQ(result.recordings[0].endMs - result.recordings[0].beginMs, 2000);
    EXPECT_THAT(Text(result), HasSubstr("recording 2, not closed in this log"));
}

struct RecordedFault {
    const char *file;
    std::vector<RowId> named;
    std::vector<RowId> notNamed;
};

class RecordedLog : public testing::TestWithParam<RecordedFault> {};

TEST_P(RecordedLog, NamesItsFault)
{
    const LogResult result = ReadRecorded(GetParam().file);
    EXPECT_EQ(result.brokenLines, 0U);
    const std::string text = Text(result);
    for (const RowId row : GetParam().named) {
        EXPECT_GT(Found(result, row), 0U) << RowOf(row).name;
        EXPECT_THAT(text, HasSubstr(PlainText(RowOf(row).meaning)));
    }
    for (const RowId row : GetParam().notNamed) {
        EXPECT_EQ(Found(result, row), 0U) << RowOf(row).name;
    }
}

INSTANTIATE_TEST_SUITE_P(
    All, RecordedLog,
    testing::Values(
        RecordedFault{"damaged-units.log",
                      {RowId::DAMAGED_UNIT, RowId::UNDERRUN},
                      {RowId::NOT_AAC, RowId::SPEAKER_REMOVED, RowId::SPEAKER_NOT_OPENED, RowId::NO_CUSHION}},
        RecordedFault{"late-server.log",
                      {RowId::NO_SPEAKER, RowId::STEP_FAILED, RowId::IDLE_RELEASE},
                      {RowId::SPEAKER_LOST, RowId::UNDERRUN, RowId::SPEAKER_NOT_OPENED}},
        RecordedFault{"microphone-flapping.log", {RowId::MICROPHONE_CHANGED}, {RowId::MICROPHONE_REMOVED}},
        RecordedFault{"microphone-removed.log",
                      {RowId::MICROPHONE_REMOVED, RowId::MICROPHONE_CHANGED},
                      {RowId::NO_MICROPHONE, RowId::MICROPHONE_MUTED}},
        RecordedFault{
            "no-service.log", {RowId::NO_AUDIO_SERVICE, RowId::CAPTURE_STOPPED}, {RowId::UNITS_ARRIVE}},
        RecordedFault{"server-died.log",
                      {RowId::SPEAKER_REMOVED, RowId::STEP_FAILED, RowId::SPEAKER_LOST},
                      {RowId::SPEAKER_CHANGED, RowId::NO_CUSHION}},
        RecordedFault{
            "server-stalled.log", {RowId::SPEAKER_STUCK}, {RowId::SPEAKER_REMOVED, RowId::SPEAKER_LOST}},
        RecordedFault{"speaker-removed.log",
                      {RowId::SPEAKER_REMOVED, RowId::SPEAKER_LOST, RowId::SPEAKER_CHANGED},
                      {RowId::SPEAKER_STUCK, RowId::UNDERRUN, RowId::DAMAGED_UNIT}},
        RecordedFault{
            "storm.log",
            {RowId::SPEAKER_CHANGED, RowId::MICROPHONE_CHANGED, RowId::WRONG_ID, RowId::DAMAGED_UNIT},
            {RowId::NO_DECODER, RowId::CALL_FAILED}}),
    [](const auto &info) {
        std::string name = info.param.file;
        name.resize(name.find('.'));
        std::replace(name.begin(), name.end(), '-', '_');
        return name;
    });

TEST(LogPage, HasBarForEachPeriodThatCounts)
{
    const LogResult result = ReadRecorded("speaker-removed.log");
    const std::string page = LogPage(result, "speaker-removed.log");
    size_t bars = 0;
    for (const auto &[second, counts] : result.Per(1)) {
        for (const LogColumn &column : logColumns) {
            bars += counts.*column.count > 0 ? 1 : 0;
        }
    }
    bars += result.streams.size() + result.recordings.size();
    size_t found = 0;
    for (size_t at = page.find("<rect"); at != std::string::npos; at = page.find("<rect", at + 1)) {
        ++found;
    }
    EXPECT_GT(bars, 20U);
    EXPECT_EQ(found, bars);
    EXPECT_THAT(page, HasSubstr("id=\"speaker-removed\""));
}

TEST(LogPage, NeedsNoOtherFile)
{
    const std::string page = LogPage(ReadRecorded("storm.log"), "storm.log");
    for (const char *reference : {"http", "src=", "href=", "url(", "@import", "<script"}) {
        EXPECT_THAT(page, Not(HasSubstr(reference)));
    }
}

TEST(LogReport, ReplacesControlCharactersAndInvalidUtf8)
{
    Log log;
    log.Error("a\x1B[2J\x7F\xC2\x9B\xC3(\xC3\xA4");
    log.Error("call failed: \x1B]0;title\x07").Build("\x1B\xFF");
    const std::string text = Text(log.Result());
    EXPECT_THAT(text, HasSubstr("a\uFFFD[#J\uFFFD\uFFFD\uFFFD(\u00E4"));
    EXPECT_THAT(text, HasSubstr("call failed: \uFFFD]0;title\uFFFD"));
    EXPECT_THAT(text, HasSubstr("LibVeltoAudioHandler \uFFFD\uFFFD from"));
    EXPECT_THAT(text, Not(HasSubstr("\x1B")));
}

TEST(LogPage, EscapesTextOfLog)
{
    Log log;
    log.Error("<b>\"&\x01\xC3\x28\xED\xA0\x80\xC3\xA4");
    const std::string page = LogPage(log.Result(), "a<b>.log");
    EXPECT_THAT(page, HasSubstr("<h1>a&lt;b&gt;.log</h1>"));
    EXPECT_THAT(page, HasSubstr("&lt;b&gt;&quot;&amp;\uFFFD\uFFFD(\uFFFD\uFFFD\uFFFD\u00E4"));
    EXPECT_THAT(page, Not(HasSubstr("<b>")));
}

// The texts below the time axis.
std::vector<std::string> MarksOf(const std::string &page)
{
    static constexpr std::string_view begin = "text-anchor=\"middle\">";
    std::vector<std::string> marks;
    for (size_t at = page.find(begin); at != std::string::npos; at = page.find(begin, at + 1)) {
        const size_t text = at + begin.size();
        marks.push_back(page.substr(text, page.find('<', text) - text));
    }
    return marks;
}

TEST(LogPage, UsesLongerPeriodsForLongLogs)
{
    Log log;
    for (int hour = 0; hour < 100; ++hour) {
        log.Error("OnAudioStateChanged").After(3600 * 1000);
    }
    const std::string page = LogPage(log.Result(), "long");
    EXPECT_THAT(page, HasSubstr("Each bar is a period of 30 min."));
    EXPECT_THAT(MarksOf(page), Each(EndsWith(" 00:00"))) << "one mark a day";
    EXPECT_GE(MarksOf(page).size(), 4U);
}

TEST(LogPage, MarksRoundTimes)
{
    const std::string page = LogPage(ReadRecorded("microphone-flapping.log"), "microphone-flapping.log");
    EXPECT_THAT(MarksOf(page), ElementsAre("02:46:45", "02:46:50", "02:46:55", "02:47:00"));
}

} // namespace
} // namespace velto::host
