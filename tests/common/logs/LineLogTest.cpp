// Tests of LineLog. What it does with its file is tested by EventLog, which writes by it.
#include "common/LineLog.h"

#include "tests/peers/TempFolder.h"

#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

namespace kqlib::test {
namespace {

class LineLogTest : public ::testing::Test
{
protected:
    EventLogSettings xSettings() const
    {
        EventLogSettings settings;
        settings.SetEnabled(true);
        settings.SetFolder(m_folder.GetFilePath());
        settings.SetFileName("lines");
        return settings;
    }
    std::string xRead(const std::string& name = "lines") const
    {
        std::ifstream file(m_folder / name, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    }
    static void xPrint(LineLog& log, const char* text)
    {
        log.Print([text](const TimePos&) { return String(text); });
    }

    TempFolder m_folder;
};

TEST_F(LineLogTest, New_DisabledAndNoLineIsMade)
{
    LineLog log;
    int made = 0;
    log.Print([&made](const TimePos&) {
        ++made;
        return String("x");
    });
    EXPECT_EQ(made, 0);
    EXPECT_FALSE(log.IsEnabled());
    EXPECT_FALSE(log.IsOpen());
    EXPECT_FALSE(log.Reopen());
}

TEST_F(LineLogTest, Print_TheLineAsItIsAndItsEnd)
{
    LineLog log;
    log.SetSettings(xSettings());
    EXPECT_TRUE(log.IsEnabled());
    EXPECT_TRUE(log.IsOpen());
    xPrint(log, "one\ttwo % {}");
    xPrint(log, "");
    xPrint(log, "\xFF");
    EXPECT_EQ(xRead(), "one\ttwo % {}\n\n\xFF\n");
}

TEST_F(LineLogTest, Print_TimeIsThatOfTheCalendar)
{
    TimePos::sSetSource([] { return SLONG8{1767323045678}; });
    LineLog log;
    log.SetSettings(xSettings());
    log.Print([](const TimePos& now) { return now.GetText(); });
    TimePos::sSetSource(nullptr);
    EXPECT_EQ(xRead(), "2026-01-02 03:04:05.678\n");
}

TEST_F(LineLogTest, RotateBytes_FileIsFull_MovedBeforeTheLine)
{
    LineLog log;
    EventLogSettings settings = xSettings();
    settings.SetRotateBytes(4);
    log.SetSettings(settings);
    for (const char* line : {"a", "b", "c"})
        xPrint(log, line);
    EXPECT_EQ(xRead("lines.1"), "a\nb\n");
    EXPECT_EQ(xRead(), "c\n");
    EventLogSettings used;
    log.GetSettings(used);
    EXPECT_TRUE(used == settings);
}

TEST_F(LineLogTest, FileMoved_Reopen_NewFile)
{
    LineLog log;
    log.SetSettings(xSettings());
    xPrint(log, "a");
    std::filesystem::rename(m_folder / "lines", m_folder / "moved");
    xPrint(log, "b");
    EXPECT_TRUE(log.Reopen());
    xPrint(log, "c");
    EXPECT_EQ(xRead("moved"), "a\nb\n");
    EXPECT_EQ(xRead(), "c\n");
}

TEST_F(LineLogTest, ManyThreads_LinesWholeAndInTheOrderOfTheirTimes)
{
    LineLog log;
    log.SetSettings(xSettings());
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i)
        threads.emplace_back([&log] {
            for (int line = 0; line < 100; ++line)
                log.Print([](const TimePos& now) { return now.GetText(); });
        });
    for (std::thread& thread : threads)
        thread.join();
    log.Purge();
    std::ifstream file(m_folder / "lines");
    std::string last;
    int count = 0;
    for (std::string line; std::getline(file, line); last = line, ++count) {
        ASSERT_EQ(line.size(), 23U);
        ASSERT_LE(last, line);
    }
    EXPECT_EQ(count, 800);
}

} // namespace
} // namespace kqlib::test
