#include "common/EventLog.h"

#include "common/TimedEvent.h"
#include "platform/Clock.h"
#include "tests/common/logs/TestEntries.h"
#include "tests/peers/TempFolder.h"
#include "tests/peers/WaitFor.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace kqlib::test {
namespace {

class EventLogTest : public ::testing::Test
{
protected:
    EventLogSettings xSettings(const String& name = "events.log", bool debug = false) const
    {
        EventLogSettings settings;
        settings.SetEnabled(true);
        settings.SetFolder(m_folder.GetFilePath());
        settings.SetFileName(name);
        settings.SetUsePrintDebug(debug);
        return settings;
    }
    /// The whole file, byte for byte.
    std::string xRead(const std::string& name = "events.log") const
    {
        std::ifstream file(m_folder / name, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    }
    std::vector<std::string> xLines(const std::string& name = "events.log") const
    {
        std::ifstream file(m_folder / name, std::ios::binary);
        std::vector<std::string> lines;
        for (std::string line; std::getline(file, line);)
            lines.push_back(line);
        return lines;
    }
    /// The line without its time and the TAB behind it.
    static std::string xFields(const std::string& line) { return line.substr(line.find('\t') + 1); }
    /// Prints an IP line with fixed ends.
    static void xPrint(EventLog& log, const String& event, const String& detail = "", const String& comment = "")
    {
        log.PrintIPNormal(EventLogSessionID(26, 0x3F2C), NetIP("192.0.2.7"), 4711, NetIP("127.0.0.1"), 21, event,
                          detail, comment);
    }

    TempFolder m_folder;
};

TEST_F(EventLogTest, New_PrintsNothing)
{
    EventLog log;
    log.PrintServiceNormal("Event", "detail", "comment");
    xPrint(log, "Event");
    log.PrintPurge();
    EXPECT_TRUE(std::filesystem::is_empty(m_folder.GetPath()));
}

TEST_F(EventLogTest, PrintServiceNormal_OneLineOfEightFields)
{
    EventLog log;
    log.SetSettings(xSettings());
    log.PrintServiceNormal("Open Listening Port Success", "0.0.0.0:21", "why");
    const auto lines = xLines();
    ASSERT_EQ(lines.size(), 1U);
    std::string shape = lines[0].substr(0, 24);
    std::replace_if(
        shape.begin(), shape.end(), [](char character) { return character >= '0' && character <= '9'; }, '9');
    EXPECT_EQ(shape, "9999-99-99 99:99:99.999\t");
    EXPECT_EQ(xFields(lines[0]), "Service\t\t\t\tOpen Listening Port Success\t0.0.0.0:21\twhy");
    EXPECT_EQ(xRead().back(), '\n');
    EXPECT_EQ(xRead().find('\r'), std::string::npos);
}

TEST_F(EventLogTest, PrintIPNormal_SessionRemoteThenLocal)
{
    EventLog log;
    log.SetSettings(xSettings());
    xPrint(log, "Connection Accepted", "d", "c");
    EXPECT_EQ(xFields(xLines().at(0)),
              "Normal\t0000001A-00003F2C\t192.0.2.7:4711\t127.0.0.1:21\tConnection Accepted\td\tc");
}

TEST_F(EventLogTest, PrintIPNormal_LargestNumbers_EightDigitsEach)
{
    EventLog log;
    log.SetSettings(xSettings());
    log.PrintIPNormal(EventLogSessionID(0xFFFFFFFF, 0xFFFFFFFE), NetIP("2001:db8::1"), 65535, NetIP("::1"), 1, "E", "",
                      "");
    EXPECT_EQ(xFields(xLines().at(0)), "Normal\tFFFFFFFF-FFFFFFFE\t[2001:db8::1]:65535\t[::1]:1\tE\t\t");
}

TEST_F(EventLogTest, PrintIPNormal_UnsetAddressAndPort_FieldEmpty)
{
    EventLog log;
    log.SetSettings(xSettings());
    log.PrintIPNormal(EventLogSessionID(), NetIP(), 0, NetIP(), 8, "E", "", "");
    EXPECT_EQ(xFields(xLines().at(0)), "Normal\t00000000-00000000\t\t0.0.0.0:8\tE\t\t");
}

TEST_F(EventLogTest, PrintIPDebug_OnlyWhenAskedFor)
{
    EventLog log;
    log.SetSettings(xSettings());
    log.PrintIPDebug(EventLogSessionID(), NetIP(), 0, NetIP(), 0, "Hidden", "", "");
    log.SetSettings(xSettings("events.log", true));
    log.PrintIPDebug(EventLogSessionID(), NetIP(), 0, NetIP(), 0, "Shown", "", "");
    const auto lines = xLines();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(xFields(lines[0]), "Debug\t00000000-00000000\t\t\tShown\t\t");
}

TEST_F(EventLogTest, Time_IsTheLocalTimeOfTheCalendar)
{
    const SLONG8 now = 1700000000042;
    FakeCalendar calendar(now);
    platform::CalendarTime local = {};
    ASSERT_TRUE(platform::ToLocalTime(now, local));
    char expected[96];
    std::snprintf(expected, sizeof expected, "%04d-%02d-%02d %02d:%02d:%02d.042", local.year, local.month, local.day,
                  local.hour, local.minute, local.second);
    EventLog log;
    log.SetSettings(xSettings());
    log.PrintServiceNormal("E", "", "");
    EXPECT_EQ(xLines().at(0).substr(0, 23), expected);
}

TEST_F(EventLogTest, AnyField_ControlCharacters_BecomePercentAndTwoUpperCaseDigits)
{
    EventLog log;
    log.SetSettings(xSettings());
    const String nasty(std::string("a\r\nb\tc\0d\x1F\x7F"
                                   "e",
                                   11));
    xPrint(log, nasty, nasty, nasty);
    const std::string clean = "a%0D%0Ab%09c%00d%1F%7Fe";
    const auto lines = xLines();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(xFields(lines[0]),
              "Normal\t0000001A-00003F2C\t192.0.2.7:4711\t127.0.0.1:21\t" + clean + "\t" + clean + "\t" + clean);
}

TEST_F(EventLogTest, AnyByteInEveryField_OneLineOfEightFields)
{
    EventLog log;
    log.SetSettings(xSettings());
    String all;
    for (int byte = 0; byte < 256; ++byte)
        all += static_cast<char>(byte);
    log.PrintServiceNormal(all, all, all);
    const std::string text = xRead();
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1);
    EXPECT_EQ(std::count(text.begin(), text.end(), '\t'), 7);
    EXPECT_NE(text.find("\x80\x81"), std::string::npos);
}

TEST_F(EventLogTest, BracesAndPercents_AreTextAndNoFormat)
{
    EventLog log;
    log.SetSettings(xSettings());
    xPrint(log, "{} {0} {:d} %s %n %v", "%%", "{");
    EXPECT_EQ(xFields(xLines().at(0)),
              "Normal\t0000001A-00003F2C\t192.0.2.7:4711\t127.0.0.1:21\t{} {0} {:d} %s %n %v\t%%\t{");
}

TEST_F(EventLogTest, VeryLongText_StaysOneLine)
{
    EventLog log;
    log.SetSettings(xSettings());
    const std::string longText(100000, 'x');
    log.PrintServiceNormal(longText, "", "");
    ASSERT_EQ(xLines().size(), 1U);
    EXPECT_NE(xLines()[0].find(longText), std::string::npos);
}

TEST_F(EventLogTest, Print_LineIsInTheFileAtOnce)
{
    EventLog log;
    log.SetSettings(xSettings());
    for (std::size_t count = 1; count <= 10; ++count) {
        log.PrintServiceNormal("E", "", "");
        EXPECT_EQ(xLines().size(), count);
    }
}

TEST_F(EventLogTest, PrintPurge_EverythingPrintedBeforeIsInTheFile)
{
    EventLog log;
    log.SetSettings(xSettings());
    for (int index = 0; index < 100; ++index)
        log.PrintServiceNormal("E", "", "");
    log.PrintPurge();
    EXPECT_EQ(xLines().size(), 100U);
}

TEST_F(EventLogTest, Reopened_Appends)
{
    for (int round = 0; round < 3; ++round) {
        EventLog log;
        log.SetSettings(xSettings());
        log.PrintServiceNormal("E", "", "");
    }
    EXPECT_EQ(xLines().size(), 3U);
}

TEST_F(EventLogTest, TwoLogsOnOneFile_BothAppend)
{
    EventLog first;
    EventLog second;
    first.SetSettings(xSettings());
    second.SetSettings(xSettings());
    first.PrintServiceNormal("1", "", "");
    second.PrintServiceNormal("2", "", "");
    first.PrintServiceNormal("3", "", "");
    EXPECT_EQ(xLines().size(), 3U);
}

TEST_F(EventLogTest, SetSettings_AnotherFile_GoesOnThere)
{
    EventLog log;
    log.SetSettings(xSettings("one.log"));
    log.PrintServiceNormal("E", "", "");
    log.SetSettings(xSettings("two.log"));
    log.PrintServiceNormal("E", "", "");
    log.SetSettings(EventLogSettings());
    log.PrintServiceNormal("E", "", "");
    EXPECT_EQ(xLines("one.log").size(), 1U);
    EXPECT_EQ(xLines("two.log").size(), 1U);
}

TEST_F(EventLogTest, SetSettings_EnabledAgain_GoesOn)
{
    EventLog log;
    log.SetSettings(xSettings("x.log", true));
    log.SetSettings(EventLogSettings());
    xPrint(log, "Lost");
    log.PrintIPDebug(EventLogSessionID(), NetIP(), 0, NetIP(), 0, "Lost", "", "");
    log.SetSettings(xSettings("x.log", true));
    xPrint(log, "Kept");
    log.PrintIPDebug(EventLogSessionID(), NetIP(), 0, NetIP(), 0, "Kept", "", "");
    log.PrintServiceNormal("Kept", "", "");
    EXPECT_EQ(xLines("x.log").size(), 3U);
}

TEST_F(EventLogTest, GetSettings_WhatWasSet)
{
    EventLog log;
    EventLogSettings settings;
    log.GetSettings(settings);
    EXPECT_TRUE(settings == EventLogSettings());
    log.SetSettings(xSettings("x.log", true));
    log.GetSettings(settings);
    EXPECT_TRUE(settings == xSettings("x.log", true));
}

TEST_F(EventLogTest, FolderMissing_IsMade)
{
    EventLogSettings settings = xSettings();
    FilePath folder = m_folder.GetFilePath();
    folder.MakeSafeForFileAppend(true);
    folder += "a/b";
    settings.SetFolder(folder);
    EventLog log;
    log.SetSettings(settings);
    log.PrintServiceNormal("E", "", "");
    EXPECT_TRUE(std::filesystem::exists(m_folder.GetPath() / "a" / "b" / "events.log"));
}

TEST_F(EventLogTest, FolderEmpty_FileIsInTheCurrentFolder)
{
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(m_folder.GetPath());
    EventLogSettings settings = xSettings();
    settings.SetFolder(FilePath());
    EventLog log;
    log.SetSettings(settings);
    log.PrintServiceNormal("E", "", "");
    std::filesystem::current_path(before);
    EXPECT_EQ(xLines().size(), 1U);
    log.SetSettings(EventLogSettings());
}

TEST_F(EventLogTest, FolderUnusable_LinesAreDroppedNothingThrows)
{
    std::ofstream(m_folder / "file") << "no folder";
    EventLogSettings settings = xSettings();
    FilePath folder = m_folder.GetFilePath();
    folder.MakeSafeForFileAppend(true);
    folder += "file";
    settings.SetFolder(folder);
    EventLog log;
    EXPECT_NO_THROW(log.SetSettings(settings));
    EXPECT_NO_THROW(log.PrintServiceNormal("E", "", ""));
    EXPECT_NO_THROW(xPrint(log, "E"));
    EXPECT_NO_THROW(log.PrintPurge());
    std::filesystem::remove(m_folder / "file");
    log.SetSettings(settings);
    log.PrintServiceNormal("E", "", "");
    EXPECT_TRUE(std::filesystem::exists(m_folder.GetPath() / "file" / "events.log"));
}

std::uint32_t g_tick = 0;

TEST_F(EventLogTest, FileUnusableForAWhile_TriedAgainAfterFiveSeconds)
{
    // Near the end of the tick, which wraps between the two tries.
    g_tick = 0xFFFFFFF0;
    TimedEvent::sSetSource([] { return g_tick; });
    std::filesystem::create_directory(m_folder / "events.log");
    EventLog log;
    log.SetSettings(xSettings());
    log.PrintServiceNormal("1", "", "");
    std::filesystem::remove(m_folder / "events.log");
    g_tick += 4999;
    log.PrintServiceNormal("2", "", "");
    EXPECT_FALSE(std::filesystem::exists(m_folder / "events.log"));
    g_tick += 1;
    log.PrintServiceNormal("3", "", "");
    TimedEvent::sSetSource(nullptr);
    ASSERT_EQ(xLines().size(), 1U);
    EXPECT_EQ(xFields(xLines()[0]), "Service\t\t\t\t3\t\t");
}

TEST_F(EventLogTest, NameIsAFolder_LinesAreDropped)
{
    std::filesystem::create_directory(m_folder / "events.log");
    EventLog log;
    EXPECT_NO_THROW(log.SetSettings(xSettings()));
    EXPECT_NO_THROW(log.PrintServiceNormal("E", "", ""));
    EXPECT_NO_THROW(log.SetSettings(xSettings("")));
    EXPECT_NO_THROW(log.PrintServiceNormal("E", "", ""));
}

TEST_F(EventLogTest, SixteenThreads_EveryLineWholeAndTimesInOrder)
{
    constexpr int THREADS = 16;
    constexpr int LINES = 200;
    EventLog log;
    log.SetSettings(xSettings());
    std::vector<std::thread> threads;
    for (int index = 0; index < THREADS; ++index)
        threads.emplace_back([&log, index] {
            for (int line = 0; line < LINES; ++line)
                xPrint(log, "Line", String::sToString(index) + ":" + String::sToString(line));
        });
    for (auto& thread : threads)
        thread.join();
    const auto lines = xLines();
    ASSERT_EQ(lines.size(), static_cast<std::size_t>(THREADS * LINES));
    std::set<std::string> seen;
    std::string lastTime;
    for (const std::string& line : lines) {
        ASSERT_EQ(std::count(line.begin(), line.end(), '\t'), 7);
        seen.insert(xFields(line));
        EXPECT_LE(lastTime, line.substr(0, 23));
        lastTime = line.substr(0, 23);
    }
    EXPECT_EQ(seen.size(), lines.size());
}

/// An event of one letter makes a line of this many bytes: time, seven separators, "Service", the letter and the LF.
constexpr ULONG SHORT_LINE = 23 + 7 + 7 + 1 + 1;

class EventLogRotationTest : public EventLogTest
{
protected:
    EventLogSettings xRotating(ULONG bytes, ULONG oldFiles) const
    {
        EventLogSettings settings = xSettings();
        settings.SetRotateBytes(bytes);
        settings.SetOldFiles(oldFiles);
        return settings;
    }
    static void xPrintLetters(EventLog& log, const std::string& letters)
    {
        for (const char letter : letters)
            log.PrintServiceNormal(String(std::string(1, letter)), "", "");
    }
    /// The letters of the lines of a file.
    std::string xLetters(const std::string& name) const
    {
        std::string letters;
        for (const std::string& line : xLines(name))
            letters += line.at(line.size() - 3);
        return letters;
    }
    bool xExists(const std::string& name) const { return std::filesystem::exists(m_folder / name); }
};

TEST_F(EventLogRotationTest, RotateBytes_FileIsFull_MovedBeforeTheLine)
{
    EventLog log;
    log.SetSettings(xRotating(3 * SHORT_LINE, 2));
    xPrintLetters(log, "abc");
    EXPECT_FALSE(xExists("events.log.1"));
    xPrintLetters(log, "defghijk");
    EXPECT_EQ(xLetters("events.log"), "jk");
    EXPECT_EQ(xLetters("events.log.1"), "ghi");
    EXPECT_EQ(xLetters("events.log.2"), "def");
    EXPECT_FALSE(xExists("events.log.3"));
}

TEST_F(EventLogRotationTest, RotateBytes_FileOfAnEarlierRun_ItsSizeCounts)
{
    for (int run = 0; run < 4; ++run) {
        EventLog log;
        log.SetSettings(xRotating(3 * SHORT_LINE, 5));
        xPrintLetters(log, "a");
    }
    EXPECT_EQ(xLetters("events.log"), "a");
    EXPECT_EQ(xLetters("events.log.1"), "aaa");
}

TEST_F(EventLogRotationTest, RotateBytes_LineLongerThanThat_HasAFileOfItsOwn)
{
    EventLog log;
    log.SetSettings(xRotating(2 * SHORT_LINE, 5));
    xPrintLetters(log, "a");
    log.PrintServiceNormal(String(std::string(1000, 'x')), "", "");
    log.PrintServiceNormal(String(std::string(1000, 'y')), "", "");
    xPrintLetters(log, "b");
    EXPECT_EQ(xLetters("events.log.3"), "a");
    EXPECT_EQ(xLetters("events.log.2"), "x");
    EXPECT_EQ(xLetters("events.log.1"), "y");
    EXPECT_EQ(xLetters("events.log"), "b");
}

TEST_F(EventLogRotationTest, OldFilesZero_TheFileIsEmptied)
{
    EventLog log;
    log.SetSettings(xRotating(2 * SHORT_LINE, 0));
    xPrintLetters(log, "abc");
    EXPECT_EQ(xLetters("events.log"), "c");
    EXPECT_FALSE(xExists("events.log.1"));
}

TEST_F(EventLogRotationTest, OldFilesFewerThanBefore_TheRestIsDeleted)
{
    for (const char* name : {"events.log.1", "events.log.2", "events.log.3", "events.log.4"})
        std::ofstream(m_folder / name) << "old";
    EventLog log;
    log.SetSettings(xRotating(SHORT_LINE, 2));
    xPrintLetters(log, "ab");
    EXPECT_EQ(xLetters("events.log.1"), "a");
    EXPECT_TRUE(xExists("events.log.2"));
    EXPECT_FALSE(xExists("events.log.3"));
    EXPECT_FALSE(xExists("events.log.4"));
}

// Where ULONG has 32 bits, the number after the last one was 0.
TEST_F(EventLogRotationTest, OldFilesAsManyAsPossible_NoneIsDeleted)
{
    std::ofstream(m_folder / "events.log.0") << "of somebody else";
    EventLog log;
    log.SetSettings(xRotating(SHORT_LINE, 0xFFFFFFFF));
    xPrintLetters(log, "ab");
    EXPECT_EQ(xLetters("events.log.1"), "a");
    EXPECT_EQ(xLetters("events.log"), "b");
    EXPECT_TRUE(xExists("events.log.0"));
}

TEST_F(EventLogRotationTest, NumberIsFree_OlderFilesStay)
{
    std::ofstream(m_folder / "events.log.2") << "......old";
    EventLog log;
    log.SetSettings(xRotating(SHORT_LINE, 2));
    xPrintLetters(log, "ab");
    EXPECT_EQ(xLetters("events.log.1"), "a");
    EXPECT_TRUE(xExists("events.log.2"));
}

TEST_F(EventLogRotationTest, FileCannotBeMoved_LinesGoOnInIt)
{
    std::filesystem::create_directories(m_folder / "events.log.1" / "sub");
    EventLog log;
    log.SetSettings(xRotating(2 * SHORT_LINE, 1));
    xPrintLetters(log, "abcde");
    EXPECT_EQ(xLetters("events.log"), "abcde");
}

TEST_F(EventLogRotationTest, RotateBytesZero_OneFile)
{
    EventLog log;
    log.SetSettings(xSettings());
    for (int index = 0; index < 1000; ++index)
        xPrintLetters(log, "a");
    EXPECT_EQ(xLines().size(), 1000U);
    EXPECT_FALSE(xExists("events.log.1"));
}

TEST_F(EventLogRotationTest, ManyThreads_NoLineIsLost)
{
    constexpr int THREADS = 8;
    constexpr int LINES = 250;
    EventLog log;
    log.SetSettings(xRotating(100 * SHORT_LINE, 1000));
    std::vector<std::thread> threads;
    for (int index = 0; index < THREADS; ++index)
        threads.emplace_back([&log] { xPrintLetters(log, std::string(LINES, 'a')); });
    for (int index = 0; index < 20; ++index)
        EXPECT_TRUE(log.Reopen());
    for (auto& thread : threads)
        thread.join();
    std::size_t lines = xLines().size();
    for (int number = 1; xExists("events.log." + std::to_string(number)); ++number) {
        EXPECT_EQ(xLines("events.log." + std::to_string(number)).size(), 100U);
        lines += xLines("events.log." + std::to_string(number)).size();
    }
    EXPECT_EQ(lines, static_cast<std::size_t>(THREADS * LINES));
}

TEST_F(EventLogRotationTest, RotateDaily_FirstLineOfTheDay_MovesTheFile)
{
    const SLONG8 day = 86400000;
    const SLONG8 noon = 1700049600000;
    EventLogSettings settings = xSettings();
    settings.SetRotateDaily(true);
    EventLog log;
    {
        FakeCalendar calendar(noon);
        log.SetSettings(settings);
        xPrintLetters(log, "ab");
    }
    {
        FakeCalendar calendar(noon + day);
        xPrintLetters(log, "cd");
    }
    FakeCalendar calendar(noon + 3 * day);
    xPrintLetters(log, "e");
    EXPECT_EQ(xLetters("events.log"), "e");
    EXPECT_EQ(xLetters("events.log.1"), "cd");
    EXPECT_EQ(xLetters("events.log.2"), "ab");
}

TEST_F(EventLogRotationTest, RotateDaily_FileWrittenYesterdayByAnEarlierRun_Moved)
{
    EventLogSettings settings = xSettings();
    settings.SetRotateDaily(true);
    for (const char* letter : {"a", "b"}) {
        EventLog log;
        log.SetSettings(settings);
        xPrintLetters(log, letter);
        std::filesystem::last_write_time(m_folder / "events.log",
                                         std::filesystem::file_time_type::clock::now() - std::chrono::hours(24));
    }
    EXPECT_EQ(xLetters("events.log"), "b");
    EXPECT_EQ(xLetters("events.log.1"), "a");
}

TEST_F(EventLogRotationTest, RotateDaily_WithTheSize_BothMoveIt)
{
    EventLogSettings settings = xRotating(2 * SHORT_LINE, 10);
    settings.SetRotateDaily(true);
    EventLog log;
    {
        FakeCalendar calendar(1700049600000);
        log.SetSettings(settings);
        xPrintLetters(log, "abc");
    }
    FakeCalendar calendar(1700049600000 + 86400000);
    xPrintLetters(log, "d");
    EXPECT_EQ(xLetters("events.log"), "d");
    EXPECT_EQ(xLetters("events.log.1"), "c");
    EXPECT_EQ(xLetters("events.log.2"), "ab");
}

TEST_F(EventLogRotationTest, RotateDaily_FileCannotBeMoved_TriedAgainOnTheSameDay)
{
    g_tick = 1000;
    TimedEvent::sSetSource([] { return g_tick; });
    std::filesystem::create_directories(m_folder / "events.log.1" / "sub");
    EventLogSettings settings = xSettings();
    settings.SetRotateDaily(true);
    settings.SetOldFiles(1);
    EventLog log;
    {
        FakeCalendar calendar(1700049600000);
        log.SetSettings(settings);
        xPrintLetters(log, "a");
    }
    FakeCalendar calendar(1700049600000 + 86400000);
    xPrintLetters(log, "b");
    std::filesystem::remove_all(m_folder / "events.log.1");
    xPrintLetters(log, "c");
    EXPECT_EQ(xLetters("events.log"), "abc");
    g_tick += 5000;
    xPrintLetters(log, "d");
    TimedEvent::sSetSource(nullptr);
    EXPECT_EQ(xLetters("events.log.1"), "abc");
    EXPECT_EQ(xLetters("events.log"), "d");
}

TEST_F(EventLogRotationTest, TwoLogsRotateOneFile_NeitherUndoesTheOther)
{
    EventLog first;
    EventLog second;
    first.SetSettings(xRotating(2 * SHORT_LINE, 10));
    second.SetSettings(xRotating(2 * SHORT_LINE, 10));
    xPrintLetters(first, "ab");
    xPrintLetters(second, "c");
    xPrintLetters(first, "d");
    EXPECT_EQ(xLetters("events.log.1") + xLetters("events.log"), "abcd");
}

TEST_F(EventLogRotationTest, FileMoved_NotAskedFor_LinesFollowIt)
{
    EventLog log;
    log.SetSettings(xSettings());
    xPrintLetters(log, "a");
    std::filesystem::rename(m_folder / "events.log", m_folder / "moved");
    xPrintLetters(log, "b");
    EXPECT_EQ(xLetters("moved"), "ab");
    EXPECT_FALSE(xExists("events.log"));
}

TEST_F(EventLogRotationTest, FileMoved_Reopen_NewFile)
{
    EventLog log;
    log.SetSettings(xSettings());
    xPrintLetters(log, "a");
    std::filesystem::rename(m_folder / "events.log", m_folder / "moved");
    EXPECT_TRUE(log.Reopen());
    xPrintLetters(log, "b");
    EXPECT_EQ(xLetters("moved"), "a");
    EXPECT_EQ(xLetters("events.log"), "b");
}

TEST_F(EventLogRotationTest, FileNotMoved_Reopen_Appends)
{
    EventLog log;
    log.SetSettings(xSettings());
    xPrintLetters(log, "a");
    EXPECT_TRUE(log.Reopen());
    xPrintLetters(log, "b");
    EXPECT_EQ(xLetters("events.log"), "ab");
}

TEST_F(EventLogRotationTest, Reopen_NewFileCannotBeHad_FalseAndTheOldOneStays)
{
    EventLog log;
    log.SetSettings(xSettings());
    xPrintLetters(log, "a");
    std::filesystem::rename(m_folder / "events.log", m_folder / "moved");
    std::filesystem::create_directory(m_folder / "events.log");
    EXPECT_FALSE(log.Reopen());
    EXPECT_TRUE(log.IsOpen());
    xPrintLetters(log, "b");
    EXPECT_EQ(xLetters("moved"), "ab");
}

TEST_F(EventLogRotationTest, Reopen_DisabledOrUnusable_False)
{
    EventLog log;
    EXPECT_FALSE(log.Reopen());
    EXPECT_FALSE(log.IsOpen());
    std::filesystem::create_directory(m_folder / "events.log");
    log.SetSettings(xSettings());
    EXPECT_FALSE(log.Reopen());
    EXPECT_FALSE(log.IsOpen());
    std::filesystem::remove(m_folder / "events.log");
    EXPECT_TRUE(log.Reopen());
    EXPECT_TRUE(log.IsOpen());
}

TEST_F(EventLogRotationTest, ReopenWhenMoved_Moved_NewFile)
{
    EventLogSettings settings = xSettings();
    settings.SetReopenWhenMoved(true);
    EventLog log;
    log.SetSettings(settings);
    xPrintLetters(log, "a");
    std::filesystem::rename(m_folder / "events.log", m_folder / "moved");
    xPrintLetters(log, "bc");
    EXPECT_EQ(xLetters("moved"), "a");
    EXPECT_EQ(xLetters("events.log"), "bc");
}

TEST_F(EventLogRotationTest, ReopenWhenMoved_Deleted_NewFile)
{
    EventLogSettings settings = xSettings();
    settings.SetReopenWhenMoved(true);
    EventLog log;
    log.SetSettings(settings);
    xPrintLetters(log, "a");
    std::filesystem::remove(m_folder / "events.log");
    xPrintLetters(log, "b");
    EXPECT_EQ(xLetters("events.log"), "b");
}

TEST_F(EventLogRotationTest, ReopenWhenMoved_AnotherFileInItsPlace_AppendedTo)
{
    EventLogSettings settings = xSettings();
    settings.SetReopenWhenMoved(true);
    EventLog log;
    log.SetSettings(settings);
    xPrintLetters(log, "a");
    std::filesystem::rename(m_folder / "events.log", m_folder / "moved");
    std::ofstream(m_folder / "events.log", std::ios::binary) << "x  \n";
    xPrintLetters(log, "b");
    EXPECT_EQ(xLetters("events.log"), "xb");
}

TEST_F(EventLogRotationTest, ReopenWhenMoved_NewFileCannotBeHad_LinesFollowTheOldOneAndTriedAgain)
{
    g_tick = 1000;
    TimedEvent::sSetSource([] { return g_tick; });
    EventLogSettings settings = xSettings();
    settings.SetReopenWhenMoved(true);
    EventLog log;
    log.SetSettings(settings);
    xPrintLetters(log, "a");
    std::filesystem::rename(m_folder / "events.log", m_folder / "moved");
    std::filesystem::create_directory(m_folder / "events.log");
    xPrintLetters(log, "b");
    std::filesystem::remove(m_folder / "events.log");
    g_tick += 5000;
    xPrintLetters(log, "c");
    TimedEvent::sSetSource(nullptr);
    EXPECT_EQ(xLetters("moved"), "ab");
    EXPECT_EQ(xLetters("events.log"), "c");
}

TEST_F(EventLogTest, FileEndsWithinALine_NextLineBeginsItsOwn)
{
    std::ofstream(m_folder / "events.log", std::ios::binary) << "begun and never ended";
    EventLog log;
    log.SetSettings(xSettings());
    log.PrintServiceNormal("E", "", "");
    log.PrintServiceNormal("F", "", "");
    const auto lines = xLines();
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_EQ(lines[0], "begun and never ended");
    EXPECT_EQ(xFields(lines[1]), "Service\t\t\t\tE\t\t");
    EXPECT_EQ(xFields(lines[2]), "Service\t\t\t\tF\t\t");
}

TEST_F(EventLogTest, FolderNameIsNoText_LinesAreDroppedOrKeptNothingThrows)
{
    EventLogSettings settings = xSettings();
    FilePath folder = m_folder.GetFilePath();
    folder.MakeSafeForFileAppend(true);
    folder += "\xFF\xFE";
    settings.SetFolder(folder);
    EventLog log;
    EXPECT_NO_THROW(log.SetSettings(settings));
    EXPECT_NO_THROW(log.PrintServiceNormal("E", "", ""));
}

TEST_F(EventLogTest, PrintIPDebug_LogIsHeldByAnother_SwitchedOffOneDoesNotWait)
{
    /// The time is asked for with the lock held: whoever asks stands still there until it is let go.
    static std::atomic<bool> asked;
    static std::atomic<bool> letGo;
    asked = false;
    letGo = false;
    EventLog log;
    log.SetSettings(xSettings());
    TimePos::sSetSource([]() -> SLONG8 {
        asked = true;
        while (!letGo)
            std::this_thread::yield();
        return 1700000000000;
    });
    std::thread holder([&log] { xPrint(log, "E"); });
    EXPECT_TRUE(WaitFor([] { return asked.load(); }));
    std::atomic<bool> passed = false;
    std::thread debugger([&log, &passed] {
        log.PrintIPDebug(EventLogSessionID(), NetIP(), 0, NetIP(), 0, "Hidden", "", "");
        passed = true;
    });
    EXPECT_TRUE(WaitFor([&passed] { return passed.load(); }));
    letGo = true;
    holder.join();
    debugger.join();
    TimePos::sSetSource(nullptr);
}

/// Takes the events elsewhere.
class CountingLog : public EventLog
{
public:
    void PrintServiceNormal(const String&, const String&, const String&) override { ++count; }
    int count = 0;
};

TEST_F(EventLogTest, Derived_TakesTheEvents)
{
    CountingLog counting;
    EventLog& log = counting;
    log.SetSettings(xSettings());
    log.PrintServiceNormal("E", "", "");
    EXPECT_EQ(counting.count, 1);
    EXPECT_TRUE(xLines().empty());
}

TEST(EventLogSessionID, Data_TwelveBytesReservedZero)
{
    const EventLogSessionID id(0xFFFFFFFF, 7);
    EXPECT_EQ(id.GetDataDirect().session, 0xFFFFFFFFU);
    EXPECT_EQ(id.GetDataDirect().thread, 7U);
    EXPECT_EQ(id.GetDataDirect().reserved, 0U);
    EventLogSessionID::DATA data = id.GetDataDirect();
    data.reserved = 99;
    EXPECT_TRUE(EventLogSessionID(data) == id);
    EXPECT_EQ(EventLogSessionID(data).GetDataDirect().reserved, 0U);
    EXPECT_FALSE(EventLogSessionID(1, 7) == id);
    EXPECT_FALSE(EventLogSessionID(0xFFFFFFFF, 8) == id);
    EXPECT_TRUE(EventLogSessionID() == EventLogSessionID(0, 0));
}

} // namespace
} // namespace kqlib::test
