// The two forms of a transfer log, and its files.
#include "hosts/ftp/FtpTransferLog.h"

#include "common/LocalTime.h"
#include "hosts/ftpcommon/FtpPaths.h"
#include "tests/peers/TempFolder.h"

#include <cstdio>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <nlohmann/json.hpp>

namespace kqlib::test {
namespace {

FtpTransferLog::TRANSFER MakeDownload()
{
    FtpTransferLog::TRANSFER transfer;
    transfer.user = "ann";
    transfer.address = NetIP("192.0.2.7");
    transfer.path = FilePath("/srv/ann/f");
    transfer.bytes = 12345;
    transfer.milliSecs = 2001;
    transfer.isComplete = true;
    return transfer;
}

FtpTransferLog::TRANSFER MakeBrokenUpload()
{
    FtpTransferLog::TRANSFER transfer;
    transfer.command = "STOR";
    transfer.user = "ann \"x\"";
    transfer.isAnonymous = true;
    transfer.address = NetIP("127.0.0.1");
    transfer.path = FilePath("/srv/a b\tc\n\xFF");
    transfer.isUpload = true;
    transfer.isText = true;
    transfer.isSecured = true;
    transfer.reason = "Transfer aborted";
    return transfer;
}

/// Without its date.
std::string Standard(const FtpTransferLog::TRANSFER& transfer)
{
    const std::string line = FtpTransferLog::sMakeStandardLine(transfer, TimePos(1767323045678)).str();
    return line.size() > 25 ? line.substr(25) : line;
}

TEST(FtpTransferLog, StandardLine_DateInLocalTime)
{
    const TimePos time(1767323045678); // 2026-01-02 03:04:05.678 UTC, a Friday
    const platform::CalendarTime local = GetLocalTime(time);
    char rest[64];
    std::snprintf(rest, sizeof rest, "%2d %02d:%02d:%02d %d ", local.day, local.hour, local.minute, local.second,
                  local.year);
    const std::string line = FtpTransferLog::sMakeStandardLine(MakeDownload(), time).str();
    EXPECT_EQ(line.substr(8, 17), rest);
    const char* const days[] = {"Thu", "Fri", "Sat"}; // by the zone
    EXPECT_EQ(line.substr(0, 3), days[local.day == 2 ? 1 : local.day == 3 ? 2 : 0]);
    EXPECT_EQ(line.substr(3, 5), " Jan ");
}

TEST(FtpTransferLog, StandardLine_EighteenWords)
{
    EXPECT_EQ(Standard(MakeDownload()), "3 192.0.2.7 12345 /srv/ann/f b _ o r ann ftp 0 * c");
    EXPECT_EQ(Standard(MakeBrokenUpload()), "1 127.0.0.1 0 /srv/a_b_c_\xFF a _ i a ann_\"x\" ftp 0 * i");
    FtpTransferLog::TRANSFER longest = MakeDownload();
    longest.bytes = ~ULONG8{0};
    longest.milliSecs = ALL_BITS_32;
    EXPECT_EQ(Standard(longest), "4294968 192.0.2.7 18446744073709551615 /srv/ann/f b _ o r ann ftp 0 * c");
}

TEST(FtpTransferLog, JsonLine_ReadBack)
{
    const auto read = [](const FtpTransferLog::TRANSFER& transfer) {
        const std::string line = FtpTransferLog::sMakeJsonLine(transfer, TimePos(1767323045678)).str();
        EXPECT_EQ(line.find('\n'), std::string::npos);
        return nlohmann::json::parse(line);
    };
    EXPECT_EQ(read(MakeDownload()), nlohmann::json::parse(R"({"time": "2026-01-02T03:04:05.678Z", "user": "ann",
        "anonymous": false, "address": "192.0.2.7", "command": "RETR", "direction": "download", "path": "/srv/ann/f",
        "type": "binary", "tls": false, "size": 12345, "seconds": 2.001, "outcome": "complete"})"));
    EXPECT_EQ(read(MakeBrokenUpload()), nlohmann::json::parse(R"({"time": "2026-01-02T03:04:05.678Z",
        "user": "ann \"x\"", "anonymous": true, "address": "127.0.0.1", "command": "STOR", "direction": "upload",
        "path": "/srv/a b\tc\n\uFFFD", "type": "ascii", "tls": true, "size": 0, "seconds": 0.0,
        "outcome": "incomplete", "reason": "Transfer aborted"})"))
        << "a byte that is no UTF-8 is replaced";
}

class FtpTransferLogFiles : public testing::Test
{
protected:
    EventLogSettings Where(const FilePath& folder) const
    {
        EventLogSettings where;
        where.SetFolder(folder);
        where.SetRotateBytes(100);
        where.SetOldFiles(1);
        return where;
    }
    std::string Read(const char* name) const
    {
        std::ifstream stream(m_folder / name, std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
    }

    TempFolder m_folder;
};

TEST_F(FtpTransferLogFiles, Form_EachInItsOwnFile)
{
    FtpTransferLog log;
    log.Print(MakeDownload());
    EXPECT_TRUE(log.IsUsable()) << "nobody wants one";
    log.SetSettings("none", Where(m_folder.GetFilePath()));
    log.Print(MakeDownload());
    EXPECT_TRUE(std::filesystem::is_empty(m_folder.GetPath()));
    log.SetSettings("standard", Where(m_folder.GetFilePath()));
    log.Print(MakeDownload());
    log.SetSettings("json", Where(m_folder.GetFilePath()));
    log.Print(MakeBrokenUpload());
    EXPECT_TRUE(log.IsUsable());
    EXPECT_TRUE(Read("kqftpd-transfers.log").ends_with(" ftp 0 * c\n"));
    EXPECT_EQ(Read("kqftpd-transfers.log").find('{'), std::string::npos);
    EXPECT_TRUE(Read("kqftpd-transfers.jsonl").starts_with("{\"time\":\""));
    EXPECT_TRUE(Read("kqftpd-transfers.jsonl").ends_with("\"}\n"));
}

TEST_F(FtpTransferLogFiles, Rotation_AsTold)
{
    FtpTransferLog log;
    log.SetSettings("standard", Where(m_folder.GetFilePath()));
    log.Print(MakeDownload());
    log.Print(MakeBrokenUpload());
    EXPECT_TRUE(Read("kqftpd-transfers.log.1").ends_with(" c\n"));
    EXPECT_TRUE(Read("kqftpd-transfers.log").ends_with(" i\n"));
}

TEST_F(FtpTransferLogFiles, FileMoved_ReopenMakesANewOne)
{
    FtpTransferLog log;
    EXPECT_TRUE(log.Reopen()) << "there is nothing to do";
    for (const char* form : {"standard", "json"}) {
        log.SetSettings(form, Where(m_folder.GetFilePath()));
        const std::string name = FtpTransferLog::sGetFileName(form).str();
        std::filesystem::rename(m_folder / name, m_folder / "moved");
        EXPECT_TRUE(log.Reopen());
        EXPECT_TRUE(std::filesystem::exists(m_folder / name));
    }
}

TEST_F(FtpTransferLogFiles, FileCannotBeHad_Said)
{
    std::ofstream(m_folder / "file") << "x";
    FtpTransferLog log;
    log.SetSettings("json", Where(FromStdPath(m_folder / "file")));
    EXPECT_FALSE(log.IsUsable());
    EXPECT_FALSE(log.Reopen());
    log.Print(MakeDownload());
    log.SetSettings("none", Where(FromStdPath(m_folder / "file")));
    EXPECT_TRUE(log.IsUsable());
}

TEST(FtpTransferLog, Forms_ThreeAndNoOther)
{
    for (const char* form : {"none", "standard", "json"})
        EXPECT_TRUE(FtpTransferLog::sIsForm(form)) << form;
    for (const char* form : {"", "JSON", "xferlog"})
        EXPECT_FALSE(FtpTransferLog::sIsForm(form)) << form;
}

} // namespace
} // namespace kqlib::test
