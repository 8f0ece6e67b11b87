// What the logs do on a volume that is full, and the rights of their files. A limit on the size of files stands for the
// full volume: it, too, lets the beginning of a write pass.
#include "common/DataLogRecord.h"
#include "common/EventLog.h"
#include "tests/common/logs/TestEntries.h"
#include "tests/peers/TempFolder.h"

#include <gtest/gtest.h>

#include <csignal>
#include <fstream>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <vector>

namespace kqlib::test {
namespace {

/// No file of the process can grow past a size while it lives.
class FileSizeLimit
{
public:
    explicit FileSizeLimit(rlim_t bytes)
    {
        m_ignored = std::signal(SIGXFSZ, SIG_IGN);
        ::getrlimit(RLIMIT_FSIZE, &m_before);
        const rlimit limit = {bytes, m_before.rlim_max};
        ::setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit()
    {
        ::setrlimit(RLIMIT_FSIZE, &m_before);
        std::signal(SIGXFSZ, m_ignored);
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

private:
    rlimit m_before = {};
    void (*m_ignored)(int) = nullptr;
};

class LogFilesTest : public ::testing::Test
{
protected:
    EventLogSettings xSettings() const
    {
        EventLogSettings settings;
        settings.SetEnabled(true);
        settings.SetFolder(m_folder.GetFilePath());
        settings.SetFileName("events.log");
        return settings;
    }
    std::vector<std::string> xLines() const
    {
        std::ifstream file(m_folder / "events.log", std::ios::binary);
        std::vector<std::string> lines;
        for (std::string line; std::getline(file, line);)
            lines.push_back(line);
        return lines;
    }
    mode_t xGetMode(const std::string& name) const
    {
        struct stat status = {};
        EXPECT_EQ(::stat((m_folder / name).c_str(), &status), 0) << name;
        return status.st_mode & 07777;
    }

    TempFolder m_folder;
};

TEST_F(LogFilesTest, EventLog_VolumeFullWithinALine_LaterLinesAreWholeAndOnTheirOwn)
{
    EventLog log;
    log.SetSettings(xSettings());
    log.PrintServiceNormal("first", "", "");
    {
        const FileSizeLimit limit(60);
        log.PrintServiceNormal("cut", "", "");
        log.PrintServiceNormal("lost", "", "");
        log.PrintServiceNormal("lost", "", "");
    }
    log.PrintServiceNormal("second", "", "");
    log.PrintServiceNormal("third", "", "");
    const auto lines = xLines();
    ASSERT_EQ(lines.size(), 4U);
    EXPECT_NE(lines[0].find("\tfirst\t\t"), std::string::npos);
    EXPECT_EQ(lines[1].find("lost"), std::string::npos);
    EXPECT_NE(lines[2].find("\tsecond\t\t"), std::string::npos);
    EXPECT_EQ(lines[2].size(), lines[0].size() + 1);
    EXPECT_NE(lines[3].find("\tthird\t\t"), std::string::npos);
}

TEST_F(LogFilesTest, EventLog_VolumeFullAtTheEndOfALine_NoEmptyLine)
{
    EventLog log;
    log.SetSettings(xSettings());
    log.PrintServiceNormal("first", "", "");
    {
        struct stat status = {};
        ASSERT_EQ(::stat((m_folder / "events.log").c_str(), &status), 0);
        const FileSizeLimit limit(static_cast<rlim_t>(status.st_size));
        log.PrintServiceNormal("lost", "", "");
    }
    log.PrintServiceNormal("second", "", "");
    EXPECT_EQ(xLines().size(), 2U);
}

TEST_F(LogFilesTest, NewFiles_OwnerAndGroupOnly)
{
    const mode_t before = ::umask(0);
    EventLog events;
    EventLogSettings settings = xSettings();
    settings.SetRotateBytes(1);
    events.SetSettings(settings);
    events.PrintServiceNormal("E", "", "");
    events.PrintServiceNormal("E", "", "");
    DataLogRecord records;
    records.SetSettings(true, 0, m_folder.GetFilePath(), "", "records");
    Messages messages;
    EXPECT_TRUE(records.AddEntry(NameEntry(1, 1), messages));
    ::umask(before);
    EXPECT_EQ(xGetMode("events.log"), mode_t{0640});
    EXPECT_EQ(xGetMode("events.log.1"), mode_t{0640});
    EXPECT_EQ(xGetMode("records.db"), mode_t{0640});
    EXPECT_EQ(xGetMode("records.db-wal"), mode_t{0640});
    EXPECT_EQ(xGetMode("records.db-shm"), mode_t{0640});
}

TEST_F(LogFilesTest, FilesThatAreThere_KeepTheirRights)
{
    for (int run = 0; run < 2; ++run) {
        EventLog events;
        events.SetSettings(xSettings());
        events.PrintServiceNormal("E", "", "");
        DataLogRecord records;
        records.SetSettings(true, 0, m_folder.GetFilePath(), "", "records");
        Messages messages;
        EXPECT_TRUE(records.AddEntry(NameEntry(1, 1), messages));
        for (const char* name : {"events.log", "records.db"})
            ::chmod((m_folder / name).c_str(), 0604);
    }
    EXPECT_EQ(xGetMode("events.log"), mode_t{0604});
    EXPECT_EQ(xGetMode("records.db"), mode_t{0604});
}

} // namespace
} // namespace kqlib::test
