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

TEST_F(FtpServerLogs, NewFiles_ReadableByOwnerAndGroupOnly)
{
    Start();
    {
        FtpTestClient client = LogIn();
        EXPECT_EQ(client.Code("QUIT"), 221);
    }
    EXPECT_TRUE(WaitNoSessions());
    m_server.Stop();
    if (platform::PathSeparator() != '/')
        GTEST_SKIP() << "the standard library shows no rights of others on this system";
    using std::filesystem::perms;
    const std::filesystem::path logs = m_folder / "logs";
    const auto forbidden = [](const std::filesystem::path& path) {
        return std::filesystem::status(path).permissions() & (perms::others_all | perms::group_write);
    };
    EXPECT_EQ(forbidden(logs), perms::none);
    int count = 0;
    for (const auto& file : std::filesystem::directory_iterator(logs)) {
        EXPECT_EQ(forbidden(file.path()), perms::none) << file.path();
        ++count;
    }
    EXPECT_GE(count, 3);
}

TEST_F(FtpServerLogs, EventLogMovedOrDeleted_NewOneAppears)
{
    Start();
    const std::filesystem::path log = m_folder / "logs/kqftpd.log";
    const auto logIn = [this] { EXPECT_EQ(LogIn().Code("QUIT"), 221); };
    logIn();
    EventLogText();
    std::filesystem::rename(log, m_folder / "logs/moved");
    logIn(); // the first line makes it
    EXPECT_NE(EventLogText().find("\tLogin Success\t"), std::string::npos);
    EXPECT_NE(ReadFile(m_folder / "logs/moved").find("\tLogin Success\t"), std::string::npos);
    EXPECT_TRUE(WaitNoSessions());
    EventLogText();
    std::filesystem::rename(log, m_folder / "logs/moved again");
    String error;
    EXPECT_TRUE(m_server.ReopenLog(error)) << error.c_str();
    EXPECT_TRUE(std::filesystem::exists(log)) << "without a line";
    std::filesystem::remove(log);
    std::filesystem::create_directory(log);
    EXPECT_FALSE(m_server.ReopenLog(error));
    EXPECT_TRUE(error.StartsWith("log_folder: kqftpd.log cannot be opened in ")) << error.c_str();
}

TEST_F(FtpServerLogs, Rotation_BySize_OldFilesKeptAsManyAsSet)
{
    constexpr std::uintmax_t MB = 1024 * 1024;
    const std::filesystem::path logs = m_folder / "logs";
    std::filesystem::create_directory(logs);
    for (const char* name : {"kqftpd.log", "kqftpd.log.1", "kqftpd.log.2"})
        std::ofstream(logs / name, std::ios::binary) << name << std::string(MB, 'x') << "\n";
    m_settings.SetLogRotateMB(1);
    m_settings.SetLogOldFiles(2);
    Start();
    EXPECT_EQ(LogIn().Code("QUIT"), 221);
    EXPECT_TRUE(WaitNoSessions());
    EXPECT_LT(EventLogText().size(), MB);
    EXPECT_TRUE(ReadFile(logs / "kqftpd.log.1").starts_with("kqftpd.logx"));
    EXPECT_TRUE(ReadFile(logs / "kqftpd.log.2").starts_with("kqftpd.log.1x"));
    EXPECT_FALSE(std::filesystem::exists(logs / "kqftpd.log.3"));
    // A reload changes the rotation of the log that runs.
    m_settings.SetLogRotateMB(0);
    String error;
    EXPECT_TRUE(m_server.Reload(m_settings, error)) << error.c_str();
    std::ofstream(logs / "kqftpd.log", std::ios::binary | std::ios::app) << std::string(2 * MB, 'x') << "\n";
    EXPECT_EQ(LogIn().Code("QUIT"), 221);
    EXPECT_TRUE(WaitNoSessions());
    EXPECT_GT(EventLogText().size(), 2 * MB);
}

class FtpServerTransferLog : public FtpServerLogs
{
protected:
    std::string TransferLogText() const { return ReadFile(m_folder / "logs/kqftpd-transfers.log"); }
    /// The lines from their path on; the test's folder is left out.
    std::string TransferLines() const
    {
        std::istringstream text(TransferLogText());
        std::string all;
        for (std::string line; std::getline(text, line);)
            all += line.substr(line.rfind("home/") + 4) + "\n";
        return all;
    }
};

TEST_F(FtpServerTransferLog, NotAskedFor_NoFile)
{
    Start();
    WorkOnce();
    for (const auto& file : std::filesystem::directory_iterator(m_folder / "logs"))
        EXPECT_EQ(file.path().filename().string().find("transfer"), std::string::npos) << file.path();
}

TEST_F(FtpServerTransferLog, Standard_OneLinePerTransferBeforeItsReply)
{
    m_settings.SetTransferLog("standard");
    Start();
    EXPECT_EQ(TransferLogText(), "");
    FtpTestClient client = LogIn();
    std::string bytes;
    EXPECT_EQ(client.Upload("STOR a b", "12345"), 226);
    EXPECT_EQ(TransferLines(), "/a_b a _ i r admin ftp 0 * c\n");
    EXPECT_NE(TransferLogText().find(" 1 127.0.0.1 5 "), std::string::npos) << TransferLogText();
    EXPECT_EQ(client.Code("TYPE I"), 200);
    EXPECT_EQ(client.Upload("APPE a b", "678"), 226);
    FtpTestClient guest = LogIn("anonymous");
    EXPECT_EQ(guest.Code("TYPE I"), 200);
    EXPECT_EQ(guest.Download("RETR a b", bytes), 226);
    EXPECT_EQ(bytes, "12345678");
    EXPECT_EQ(TransferLines(), "/a_b a _ i r admin ftp 0 * c\n"
                               "/a_b b _ i r admin ftp 0 * c\n"
                               "/a_b b _ o a anonymous ftp 0 * c\n");
    EXPECT_NE(TransferLogText().find(" 1 127.0.0.1 8 "), std::string::npos) << TransferLogText();
}

TEST_F(FtpServerTransferLog, ListingsAndRefusals_NoLine)
{
    m_settings.SetTransferLog("standard");
    Start();
    FtpTestClient client = LogIn();
    std::string bytes;
    EXPECT_EQ(client.Code("STOR f"), 425) << "no data connection was prepared";
    EXPECT_EQ(client.Download("LIST", bytes), 226);
    EXPECT_EQ(client.Download("RETR missing", bytes), 550);
    EXPECT_EQ(TransferLogText(), "");
}

TEST_F(FtpServerTransferLog, Reset_Incomplete)
{
    m_settings.SetTransferLog("standard");
    Start();
    FtpTestClient client = LogIn();
    FtpTestSocket data;
    ASSERT_TRUE(client.OpenPassive(data));
    EXPECT_EQ(client.Code("STOR f"), 150);
    data.Reset();
    const int code = client.ReadCode(); // maybe nobody took the connection before it was reset
    EXPECT_TRUE(code == 426 || code == 425) << code;
    EXPECT_EQ(TransferLines(), "/f a _ i r admin ftp 0 * i\n");
}

TEST_F(FtpServerTransferLog, Reload_FormChangesForEverybody)
{
    Start();
    FtpTestClient client = LogIn();
    m_settings.SetTransferLog("json");
    String error;
    ASSERT_TRUE(m_server.Reload(m_settings, error)) << error.c_str();
    EXPECT_EQ(client.Upload("STOR f", "12345"), 226);
    const std::string text = ReadFile(m_folder / "logs/kqftpd-transfers.jsonl");
    EXPECT_NE(text.find(R"("command":"STOR","direction":"upload")"), std::string::npos) << text;
    EXPECT_NE(text.find(R"("size":5)"), std::string::npos) << text;
    EXPECT_NE(text.find(R"("outcome":"complete"})"), std::string::npos) << text;
}

TEST_F(FtpServerTransferLog, Rotated_ReopenedAndForItsOwnersAlone)
{
    m_settings.SetTransferLog("standard");
    Start();
    const std::filesystem::path log = m_folder / "logs/kqftpd-transfers.log";
    WorkOnce();
    std::filesystem::rename(log, m_folder / "logs/moved");
    String error;
    EXPECT_TRUE(m_server.ReopenLog(error)) << error.c_str();
    EXPECT_EQ(TransferLogText(), "");
    std::filesystem::rename(log, m_folder / "logs/moved again");
    WorkOnce(); // the first line makes it
    EXPECT_NE(TransferLines(), "");
    if (platform::PathSeparator() == '/') {
        using std::filesystem::perms;
        EXPECT_EQ(std::filesystem::status(log).permissions() & (perms::others_all | perms::group_write), perms::none);
    }
    std::filesystem::rename(log, m_folder / "logs/moved for good");
    std::filesystem::create_directory(log);
    EXPECT_FALSE(m_server.ReopenLog(error));
    EXPECT_TRUE(error.StartsWith("log_folder: kqftpd-transfers.log cannot be opened in ")) << error.c_str();
}

TEST_F(FtpServerTransferLog, FileCannotBeHad_SaidOrNoStart)
{
    m_settings.SetTransferLog("json");
    std::filesystem::create_directories(m_folder / "logs/kqftpd-transfers.jsonl");
    Start();
    ASSERT_EQ(m_server.GetWarnings().size(), 1U);
    EXPECT_TRUE(m_server.GetWarnings()[0].StartsWith("log_folder: kqftpd-transfers.jsonl cannot be opened in "));
    m_settings.SetRequireLogs(true);
    String error;
    EXPECT_FALSE(m_server.Start(m_settings, error));
    EXPECT_TRUE(error.StartsWith("log_folder: kqftpd-transfers.jsonl ")) << error.c_str();
}

} // namespace
} // namespace kqlib::test
