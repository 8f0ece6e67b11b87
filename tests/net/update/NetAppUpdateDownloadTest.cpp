// Tests of the download: lengths, bodies, files that cannot be written.
#include "tests/net/update/UpdateFixture.h"

#include "tests/peers/Missing.h"
#include "tests/peers/RunProgram.h"

#include <utility>

namespace kqlib::test {
namespace {

using Server = FakeHTTPServer;

constexpr auto DOWNLOADED = NetAppUpdate::ST_DOWNLOADED;
constexpr auto AVAILABLE = NetAppUpdate::ST_UPDATE_AVAILABLE;

class NetAppUpdateDownloadTest : public UpdateFixture
{
protected:
    static std::string WithLength(const std::string& length, const std::string& body)
    {
        return "HTTP/1.1 200 OK\r\nContent-Length: " + length + "\r\n\r\n" + body;
    }
};

TEST_F(NetAppUpdateDownloadTest, GenUpdateFilePath_Folders_OneSeparator)
{
    FilePath path;
    NetAppUpdate::sGenUpdateFilePath("", "setup", 7, path);
    EXPECT_EQ(path.GetText(), "setup7.exe");
    NetAppUpdate::sGenUpdateFilePath("folder/", "setup", 4294967295UL, path);
    EXPECT_EQ(path.GetText(), "folder/setup4294967295.exe");
    NetAppUpdate::sGenUpdateFilePath("folder", "", 0, path);
    EXPECT_EQ(path.GetText().Find("0.exe"), 7U);
}

TEST_F(NetAppUpdateDownloadTest, DownloadUpdate_Sizes_EveryByteArrives)
{
    for (const std::size_t size : {0U, 1U, 1023U, 1024U, 1025U, 4095U, 4096U, 4097U, 65535U, 65536U, 65537U, 1000003U})
    {
        const std::string body = MakeBody(size);
        EXPECT_EQ(DownloadAnswered(Server::sOk(body)), DOWNLOADED) << size;
        EXPECT_TRUE(InstallerBytes() == body) << size;
        EXPECT_EQ(m_update->GetReceivedAmount(), size);
        EXPECT_EQ(m_update->GetMaxReceivingAmount(), size);
        EXPECT_TRUE(std::filesystem::equivalent(m_update->GetDownloadedUpdatePath().c_str(), InstallerPath()));
    }
}

TEST_F(NetAppUpdateDownloadTest, DownloadUpdate_ByteByByte_EveryByteArrives)
{
    const std::string body = MakeBody(500);
    EXPECT_EQ(DownloadAnswered(Server::sOk(body), 1), DOWNLOADED);
    EXPECT_TRUE(InstallerBytes() == body);
}

TEST_F(NetAppUpdateDownloadTest, DownloadUpdate_BodyOneByteShortOrLong_FailedAndGone)
{
    for (const std::size_t size : {1U, 100U, 1024U, 4096U, 65536U, 300000U}) {
        const std::string length = std::to_string(size);
        ExpectNothingDownloaded(DownloadAnswered(WithLength(length, MakeBody(size - 1))));
        EXPECT_EQ(m_update->GetReceivedAmount(), size - 1);
        ExpectNothingDownloaded(DownloadAnswered(WithLength(length, MakeBody(size + 1))));
        EXPECT_EQ(m_update->GetReceivedAmount(), size + 1);
    }
}

TEST_F(NetAppUpdateDownloadTest, DownloadUpdate_EndlessBody_StoppedSoonAfterTheLength)
{
    ExpectNothingDownloaded(DownloadAnswered(WithLength("10", MakeBody(5000000))));
    EXPECT_GT(m_update->GetReceivedAmount(), 10U);
    EXPECT_LE(m_update->GetReceivedAmount(), 10U + 1024U);
}

TEST_F(NetAppUpdateDownloadTest, DownloadUpdate_LengthMissing_RefusedKeptOnPurpose)
{
    ExpectNothingDownloaded(DownloadAnswered("HTTP/1.1 200 OK\r\n\r\nbody"));
}

TEST_F(NetAppUpdateDownloadTest, DownloadUpdate_LengthsThatLie_FailedAndGone)
{
    for (const char* length : {"5", "3", "0", "-4", "x", "4294967295", "4294967296", "4294967300"})
        ExpectNothingDownloaded(DownloadAnswered(WithLength(length, "body")));
}

TEST_F(NetAppUpdateDownloadTest, DownloadUpdate_TwoLengths_FirstCounts)
{
    EXPECT_EQ(DownloadAnswered("HTTP/1.1 200 OK\r\nContent-Length: 4\r\nContent-Length: 9\r\n\r\nbody"), DOWNLOADED);
    EXPECT_EQ(InstallerBytes(), "body");
    std::filesystem::remove(InstallerPath());
    ExpectNothingDownloaded(DownloadAnswered("HTTP/1.1 200 OK\r\nContent-Length: 9\r\nContent-Length: 4\r\n\r\nbody"));
}

TEST_F(NetAppUpdateDownloadTest, DownloadUpdate_LengthBeyond32BitsAndNoBody_ReadsAsZeroKeptOnPurpose)
{
    EXPECT_EQ(DownloadAnswered(WithLength("4294967296", "")), DOWNLOADED);
    EXPECT_EQ(InstallerBytes(), "");
}

TEST_F(NetAppUpdateDownloadTest, DownloadUpdate_HangUpAtEveryByte_NeverAPartialFile)
{
    const std::string answer = Server::sOk(MakeBody(60));
    for (std::size_t size = 0; size < answer.size(); ++size)
        ExpectNothingDownloaded(DownloadAnswered(answer.substr(0, size)));
}

TEST_F(NetAppUpdateDownloadTest, DownloadUpdate_ResetInTheBody_FailedAndGone)
{
    Server server;
    server.Answer(Server::sOk(VersionFile(server))).AnswerAndReset(WithLength("100", "half"));
    ASSERT_TRUE(server.Start());
    EXPECT_EQ(Check(server), AVAILABLE);
    ExpectNothingDownloaded(Download());
}

TEST_F(NetAppUpdateDownloadTest, DownloadUpdate_OtherStatus_FileNotEvenMade)
{
    ExpectNothingDownloaded(DownloadAnswered("HTTP/1.1 404 Not Found\r\nContent-Length: 4\r\n\r\nbody"));
    EXPECT_EQ(m_update->GetReceivedAmount(), 0U);
}

TEST_F(NetAppUpdateDownloadTest, DownloadUpdate_OlderFileOfTheSameName_ReplacedOrGone)
{
    std::ofstream(InstallerPath()) << "something older and longer";
    EXPECT_EQ(DownloadAnswered(Server::sOk("new")), DOWNLOADED);
    EXPECT_EQ(InstallerBytes(), "new");
    ExpectNothingDownloaded(DownloadAnswered(WithLength("4", "new")));
}

TEST_F(NetAppUpdateDownloadTest, DownloadUpdate_FolderMissing_FailedWithoutAPath)
{
    MakeUpdate(FilePath((m_folder / "missing").string().c_str()));
    ExpectNothingDownloaded(DownloadAnswered(Server::sOk("body")));
}

TEST_F(NetAppUpdateDownloadTest, DownloadUpdate_FolderIsAFile_FailedWithoutAPath)
{
    std::ofstream(m_folder / "file") << "x";
    MakeUpdate(FilePath((m_folder / "file").string().c_str()));
    EXPECT_EQ(DownloadAnswered(Server::sOk("body")), NetAppUpdate::ST_FAILED);
    EXPECT_TRUE(m_update->GetDownloadedUpdatePath().empty());
}

TEST_F(NetAppUpdateDownloadTest, DownloadUpdate_NameIsAFolder_FailedAndTheFolderStays)
{
    std::filesystem::create_directory(InstallerPath());
    EXPECT_EQ(DownloadAnswered(Server::sOk("body")), NetAppUpdate::ST_FAILED);
    EXPECT_TRUE(m_update->GetDownloadedUpdatePath().empty());
    EXPECT_TRUE(std::filesystem::is_directory(InstallerPath()));
}

TEST_F(NetAppUpdateDownloadTest, DownloadUpdate_EveryWriteFails_FailedAndGone)
{
    const std::filesystem::path full = "/dev/full";
    if (!std::filesystem::exists(full))
        GTEST_SKIP() << "this system has no device that is always full";
    std::filesystem::create_symlink(full, InstallerPath());
    ExpectNothingDownloaded(DownloadAnswered(Server::sOk("body")));
}

/// A file system of 64 KiB on a folder, as long as it lives.
class SmallDisk
{
public:
    explicit SmallDisk(const std::filesystem::path& folder)
        : m_folder(folder.string())
        , m_result(RunProgram("mount", {"-t", "tmpfs", "-o", "size=64k", "tmpfs", m_folder}))
    {
    }
    ~SmallDisk()
    {
        if (m_result.success)
            RunProgram("umount", {m_folder});
    }
    SmallDisk(const SmallDisk&) = delete;
    SmallDisk& operator=(const SmallDisk&) = delete;

    const PROGRAMRESULT& GetResult() const { return m_result; }

private:
    const std::string m_folder;
    const PROGRAMRESULT m_result;
};

TEST_F(NetAppUpdateDownloadTest, DownloadUpdate_DiskFills_FailedAndTheDiskIsEmptyAgain)
{
    const SmallDisk disk(m_folder.GetPath());
    if (!disk.GetResult().success)
        KQ_MISSING("no small disk could be mounted: " << disk.GetResult().output);
    ExpectNothingDownloaded(DownloadAnswered(Server::sOk(MakeBody(200000))));
    EXPECT_EQ(DownloadAnswered(Server::sOk(MakeBody(50000))), DOWNLOADED);
    EXPECT_EQ(InstallerBytes().size(), 50000U);
}

TEST_F(NetAppUpdateDownloadTest, DownloadUpdate_UnderWay_AmountsGrow)
{
    Server server;
    server.Answer(Server::sOk(VersionFile(server))).AnswerAndStall(WithLength("1000", MakeBody(400)));
    ASSERT_TRUE(server.Start());
    EXPECT_EQ(Check(server), AVAILABLE);
    ASSERT_TRUE(m_update->DownloadUpdate());
    EXPECT_TRUE(WaitFor([this] { return m_update->GetReceivedAmount() == 400; }));
    EXPECT_EQ(m_update->GetMaxReceivingAmount(), 1000U);
    EXPECT_EQ(m_update->GetStatus(), NetAppUpdate::ST_DOWNLOADING);
    EXPECT_FALSE(m_update->GetDownloadedUpdatePath().empty());
    server.Continue();
    ExpectNothingDownloaded(WaitForEnd());
}

TEST_F(NetAppUpdateDownloadTest, DownloadUpdate_ConnectionStaysOpenAfterTheBody_WaitsForItsEndKeptOnPurpose)
{
    Server server;
    server.Answer(Server::sOk(VersionFile(server))).AnswerAndStall(Server::sOk("body"));
    ASSERT_TRUE(server.Start());
    EXPECT_EQ(Check(server), AVAILABLE);
    ASSERT_TRUE(m_update->DownloadUpdate());
    EXPECT_TRUE(WaitFor([this] { return m_update->GetReceivedAmount() == 4; }));
    EXPECT_EQ(m_update->GetStatus(), NetAppUpdate::ST_DOWNLOADING);
    EXPECT_TRUE(m_update->IsBusy());
    server.Continue();
    EXPECT_EQ(WaitForEnd(), DOWNLOADED);
}

} // namespace
} // namespace kqlib::test
