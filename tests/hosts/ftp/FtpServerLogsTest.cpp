// Logs that cannot be written: clients are served all the same, and nothing that was stored is lost.
#include "tests/hosts/ftp/FtpServerFixture.h"

#include "common/DataLogRecord.h"
#include "common/DataLogResults.h"
#include "common/ThreadEvent.h"
#include "tests/peers/Missing.h"

#include <cstdlib>

namespace kqlib::test {
namespace {

/// A small file system of its own on a folder, which only root can have.
class SmallDisk
{
public:
    explicit SmallDisk(const std::filesystem::path& folder)
        : m_folder(folder)
    {
        std::filesystem::create_directories(folder);
        m_isMounted = xRun("mount -t tmpfs -o size=1m tmpfs");
    }
    ~SmallDisk()
    {
        if (m_isMounted)
            xRun("umount -l");
    }
    SmallDisk(const SmallDisk&) = delete;
    SmallDisk& operator=(const SmallDisk&) = delete;

    bool IsMounted() const { return m_isMounted; }
    bool SetReadOnly(bool readOnly) const { return xRun(readOnly ? "mount -o remount,ro" : "mount -o remount,rw"); }
    /// Takes all the room that is left.
    void Fill() const
    {
        std::ofstream file(m_folder / "filler", std::ios::binary);
        const std::string block(4096, 'x');
        while (file.write(block.data(), static_cast<std::streamsize>(block.size())).flush()) {
        }
    }
    void Empty() const { std::filesystem::remove(m_folder / "filler"); }

private:
    bool xRun(const std::string& command) const
    {
        return std::system((command + " '" + m_folder.string() + "' 2>/dev/null").c_str()) == 0;
    }

    const std::filesystem::path m_folder;
    bool m_isMounted = false;
};

class FtpServerLogs : public FtpServerFixture
{
protected:
    /// A whole session with an upload and a download.
    void WorkOnce()
    {
        FtpTestClient client = LogIn();
        std::string bytes;
        EXPECT_EQ(client.Upload("STOR f", "12345"), 226);
        EXPECT_EQ(client.Download("RETR f", bytes), 226);
        EXPECT_EQ(bytes, "12345");
        EXPECT_EQ(client.Code("QUIT"), 221);
        EXPECT_TRUE(WaitNoSessions());
    }
    ULONG RecordedSessions() const
    {
        DataLogRecord log;
        log.SetSettings(true, 0, FromStdPath(m_folder / "logs"), "kqftpd-", "sessions");
        DataLogResults results;
        Messages messages;
        EXPECT_TRUE(log.Query(DataLogQuery(), ThreadEvent(), NetSessionStatus(), results, messages));
        return results.GetCount();
    }
};

TEST_F(FtpServerLogs, Folder_ReadOnly_ServedAndLoggedOnceItMayBeWritten)
{
    const SmallDisk disk(m_folder / "logs");
    if (!disk.IsMounted())
        KQ_MISSING("a small file system cannot be mounted here (needs root)");
    ASSERT_TRUE(disk.SetReadOnly(true));
    Start();
    WorkOnce();
    EXPECT_TRUE(std::filesystem::is_empty(m_folder / "logs"));
    ASSERT_TRUE(disk.SetReadOnly(false));
    WorkOnce();
    m_server.Stop();
    EXPECT_EQ(RecordedSessions(), 1U) << "the first one had nowhere to go";
}

TEST_F(FtpServerLogs, Disk_Full_ServedAndNothingStoredIsLost)
{
    const SmallDisk disk(m_folder / "logs");
    if (!disk.IsMounted())
        KQ_MISSING("a small file system cannot be mounted here (needs root)");
    Start();
    WorkOnce();
    const std::string eventsBefore = EventLogText();
    disk.Fill();
    for (int i = 0; i < 20; ++i)
        WorkOnce();
    disk.Empty();
    WorkOnce();
    const std::string events = EventLogText();
    EXPECT_EQ(events.substr(0, eventsBefore.size()), eventsBefore);
    EXPECT_GT(events.size(), eventsBefore.size()) << "lines go on once there is room";
    NetServiceStatus totals;
    m_server.GetService().GetStatus(totals);
    EXPECT_EQ(totals.GetFilesRead(), 22U) << "what the log could not take is counted all the same";
    m_server.Stop();
    const ULONG recorded = RecordedSessions();
    EXPECT_GE(recorded, 2U) << "the first and the last";
    EXPECT_LE(recorded, 22U);
}

TEST_F(FtpServerLogs, Folder_IsAFile_ServedWithoutLogs)
{
    std::ofstream(m_folder / "logs") << "no folder";
    Start();
    WorkOnce();
    m_server.Stop();
    EXPECT_EQ(ReadFile(m_folder / "logs"), "no folder");
}

} // namespace
} // namespace kqlib::test
