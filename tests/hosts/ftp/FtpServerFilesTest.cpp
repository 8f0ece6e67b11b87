// Dialogues: folders, names, times, rights.
#include "tests/hosts/ftp/FtpServerFixture.h"

namespace kqlib::test {
namespace {

namespace fs = std::filesystem;
using FtpServerFiles = FtpServerFixture;

TEST_F(FtpServerFiles, Folders_MadeEnteredLeftRemoved)
{
    Start();
    FtpTestClient client = LogIn();
    EXPECT_EQ(client.Ask("PWD"), "257 \"/\" is the current folder\n");
    EXPECT_EQ(client.Ask("MKD a b"), "257 \"/a b\" was made\n");
    EXPECT_EQ(client.Code("MKD a b"), 550);
    EXPECT_EQ(client.Code("CWD a b"), 250);
    EXPECT_EQ(client.Ask("XPWD"), "257 \"/a b\" is the current folder\n");
    EXPECT_EQ(client.Code("XMKD c"), 257);
    EXPECT_EQ(client.Code("XCWD c"), 250);
    EXPECT_EQ(client.Code("CDUP"), 250);
    EXPECT_EQ(client.Code("XCUP"), 250);
    EXPECT_EQ(client.Code("CDUP"), 250) << "above the top is the top";
    EXPECT_EQ(client.Ask("PWD"), "257 \"/\" is the current folder\n");
    EXPECT_EQ(client.Code("RMD a b"), 550) << "not empty";
    EXPECT_EQ(client.Code("XRMD a b/c"), 250);
    EXPECT_EQ(client.Code("RMD a b"), 250);
    EXPECT_EQ(client.Code("RMD a b"), 550);
    EXPECT_EQ(client.Code("RMD /"), 550);
    EXPECT_EQ(client.Code("CWD missing"), 550);
    EXPECT_TRUE(HasEvent("Directory Create Success"));
    EXPECT_TRUE(HasEvent("Directory Create Fail"));
    EXPECT_TRUE(HasEvent("Directory Delete Success"));
}

TEST_F(FtpServerFiles, Folder_QuoteInItsName_Doubled)
{
    Start();
    FtpTestClient client = LogIn();
    EXPECT_EQ(client.Ask("MKD a\"b"), "257 \"/a\"\"b\" was made\n");
    EXPECT_EQ(client.Code("CWD a\"b"), 250);
    EXPECT_EQ(client.Ask("PWD"), "257 \"/a\"\"b\" is the current folder\n");
}

TEST_F(FtpServerFiles, Names_InUTF8_KeptByteByByte)
{
    Start();
    FtpTestClient client = LogIn();
    const std::string name = "gr\xC3\xBC\xC3\x9F-\xE6\x97\xA5";
    EXPECT_EQ(client.Code("MKD " + name), 257);
    EXPECT_TRUE(IsInHome(name));
    EXPECT_EQ(client.Code("CWD " + name), 250);
    EXPECT_EQ(client.Ask("PWD"), "257 \"/" + name + "\" is the current folder\n");
}

TEST_F(FtpServerFiles, Delete_FilesOnly)
{
    WriteHomeFile("f", "x");
    fs::create_directory(Home() / "d");
    Start();
    FtpTestClient client = LogIn();
    EXPECT_EQ(client.Code("DELE d"), 550);
    EXPECT_EQ(client.Code("DELE f"), 250);
    EXPECT_EQ(client.Code("DELE f"), 550);
    EXPECT_FALSE(IsInHome("f"));
    EXPECT_TRUE(HasEvent("File Delete Success"));
    EXPECT_TRUE(HasEvent("File Delete Fail"));
}

TEST_F(FtpServerFiles, Rename_TwoCommandsInARow)
{
    WriteHomeFile("f", "x");
    fs::create_directory(Home() / "d");
    Start();
    FtpTestClient client = LogIn();
    EXPECT_EQ(client.Code("RNTO g"), 503);
    EXPECT_EQ(client.Code("RNFR missing"), 550);
    EXPECT_EQ(client.Code("RNTO g"), 503);
    EXPECT_EQ(client.Code("RNFR f"), 350);
    EXPECT_EQ(client.Code("NOOP"), 200);
    EXPECT_EQ(client.Code("RNTO g"), 503) << "something came between";
    EXPECT_EQ(client.Code("RNFR f"), 350);
    EXPECT_EQ(client.Code("RNTO d/g"), 250);
    EXPECT_EQ(ReadHomeFile("d/g"), "x");
    EXPECT_EQ(client.Code("RNFR d"), 350);
    EXPECT_EQ(client.Code("RNTO e"), 250);
    EXPECT_EQ(client.Code("RNFR e"), 350);
    EXPECT_EQ(client.Code("RNTO missing/e"), 553);
    EXPECT_EQ(client.Code("RNTO x"), 503);
    EXPECT_TRUE(HasEvent("File Move Success"));
    EXPECT_TRUE(HasEvent("Directory Move Success"));
    EXPECT_TRUE(HasEvent("Directory Move Fail"));
}

TEST_F(FtpServerFiles, Rename_OntoAFile_NeedsTheRightToDelete)
{
    WriteHomeFile("f", "new");
    WriteHomeFile("g", "old");
    Start();
    FtpTestClient writer = LogIn("writer");
    EXPECT_EQ(writer.Code("RNFR f"), 350);
    EXPECT_EQ(writer.Code("RNTO g"), 553);
    EXPECT_EQ(ReadHomeFile("g"), "old");
    FtpTestClient admin = LogIn();
    EXPECT_EQ(admin.Code("RNFR f"), 350);
    EXPECT_EQ(admin.Code("RNTO g"), 250);
    EXPECT_EQ(ReadHomeFile("g"), "new");
}

TEST_F(FtpServerFiles, SizeAndTimes_ReadAndSet)
{
    WriteHomeFile("f", "12345");
    fs::create_directory(Home() / "d");
    Start();
    FtpTestClient client = LogIn();
    EXPECT_EQ(client.Code("SIZE f"), 550) << "not in TYPE A";
    EXPECT_EQ(client.Code("TYPE I"), 200);
    EXPECT_EQ(client.Ask("SIZE f"), "213 5\n");
    EXPECT_EQ(client.Code("SIZE d"), 550);
    EXPECT_EQ(client.Code("SIZE missing"), 550);
    EXPECT_EQ(client.Ask("MFMT 20200102030405 f"), "213 Modify=20200102030405; f\n");
    EXPECT_EQ(client.Ask("MDTM f"), "213 20200102030405\n");
    EXPECT_EQ(client.Code("MDTM missing"), 550);
    EXPECT_EQ(client.Code("MFMT 20200102030405 missing"), 550);
}

TEST_F(FtpServerFiles, SizeBeyond32Bits_Whole)
{
    WriteHomeFile("big", "");
    fs::resize_file(Home() / "big", 5000000000);
    Start();
    FtpTestClient client = LogIn();
    EXPECT_EQ(client.Code("TYPE I"), 200);
    EXPECT_EQ(client.Ask("SIZE big"), "213 5000000000\n");
}

TEST_F(FtpServerFiles, Mlst_FileFolderAndSelection)
{
    WriteHomeFile("f", "12345");
    Start();
    FtpTestClient client = LogIn();
    const std::string reply = client.Ask("MLST f");
    EXPECT_EQ(reply.rfind("250-Listing\n type=file;size=5;modify=", 0), 0U) << reply;
    EXPECT_NE(reply.find(";perm=adfrw;"), std::string::npos) << reply;
    EXPECT_NE(reply.find("; /f\n250 End\n"), std::string::npos) << reply;
    EXPECT_EQ(client.Ask("MLST").rfind("250-Listing\n type=dir;", 0), 0U);
    EXPECT_EQ(client.Code("MLST missing"), 550);
    EXPECT_EQ(client.Code("OPTS MLST size;"), 200);
    EXPECT_EQ(client.Ask("MLST f"), "250-Listing\n size=5; /f\n250 End\n");
}

TEST_F(FtpServerFiles, Rights_ReadOnly_NothingChanges)
{
    WriteHomeFile("f", "x");
    fs::create_directory(Home() / "d");
    Start();
    FtpTestClient client = LogIn("reader");
    for (const char* line : {"MKD n", "RMD d", "DELE f", "RNFR f", "MFMT 20200101000000 f"})
        EXPECT_EQ(client.Code(line), 550) << line;
    EXPECT_EQ(client.Upload("STOR n", "x"), 553);
    EXPECT_EQ(client.Upload("APPE f", "x"), 553);
    std::string bytes;
    EXPECT_EQ(client.Download("RETR f", bytes), 226);
    EXPECT_EQ(bytes, "x");
    EXPECT_EQ(ReadHomeFile("f"), "x");
    EXPECT_FALSE(IsInHome("n"));
}

TEST_F(FtpServerFiles, Rights_WriteOnly_NothingIsShown)
{
    WriteHomeFile("f", "x");
    Start();
    FtpTestClient client = LogIn("dropper");
    std::string bytes;
    for (const char* line : {"RETR f", "LIST", "NLST", "MLSD"})
        EXPECT_EQ(client.Download(line, bytes), 550) << line;
    EXPECT_EQ(client.Code("MLST f"), 550);
    EXPECT_EQ(client.Code("STAT /"), 550);
    EXPECT_EQ(client.Upload("STOR n", "new"), 226);
    EXPECT_EQ(ReadHomeFile("n"), "new");
    EXPECT_EQ(client.Code("DELE n"), 550);
}

TEST_F(FtpServerFiles, Paths_OutOfTheHome_LeadNowhere)
{
    fs::create_directory(m_folder / "outside");
    std::ofstream(m_folder / "outside/secret") << "secret";
    fs::create_symlink(m_folder / "outside", Home() / "abs");
    fs::create_symlink("../outside", Home() / "rel");
    Start();
    FtpTestClient client = LogIn();
    std::string bytes;
    for (const char* path :
         {"../outside/secret", "/../../outside/secret", "abs/secret", "rel/secret", "rel/../rel/secret"}) {
        EXPECT_EQ(client.Download(std::string("RETR ") + path, bytes), 550) << path;
        EXPECT_EQ(client.Code(std::string("DELE ") + path), 550) << path;
        EXPECT_EQ(client.Code(std::string("RNFR ") + path), 550) << path;
        EXPECT_EQ(client.Code(std::string("MDTM ") + path), 550) << path;
        EXPECT_EQ(client.Upload(std::string("APPE ") + path, "x"), 553) << path;
    }
    for (const char* path : {"abs", "rel"}) {
        EXPECT_EQ(client.Code(std::string("CWD ") + path), 550) << path;
        EXPECT_EQ(client.Download(std::string("MLSD ") + path, bytes), 501) << path;
        EXPECT_EQ(client.Code(std::string("RMD ") + path), 550) << path;
        EXPECT_EQ(client.Upload(std::string("STOR ") + path + "/new", "x"), 553) << path;
        EXPECT_EQ(client.Code(std::string("MKD ") + path + "/new"), 550) << path;
    }
    EXPECT_EQ(client.Code("RNFR rel"), 350) << "the link itself is the user's";
    EXPECT_EQ(client.Code("RNTO moved"), 250);
    EXPECT_EQ(client.Code("CWD moved"), 550);
    EXPECT_EQ(client.Code("DELE moved"), 250);
    EXPECT_EQ(ReadFile(m_folder / "outside/secret"), "secret");
    EXPECT_EQ(std::distance(fs::directory_iterator(m_folder / "outside"), fs::directory_iterator()), 1);
}

TEST_F(FtpServerFiles, RelativeLinkMovedByRename_RefusedFromItsNewPlace)
{
    fs::create_directories(Home() / "a/b");
    fs::create_directory(m_folder / "outside");
    fs::create_symlink("../../outside", Home() / "a/b/link");
    Start();
    FtpTestClient client = LogIn();
    EXPECT_EQ(client.Code("RNFR a/b/link"), 350);
    EXPECT_EQ(client.Code("RNTO a/link"), 250);
    EXPECT_EQ(client.Code("CWD a/link"), 550);
    EXPECT_EQ(client.Upload("STOR a/link/x", "x"), 553);
    EXPECT_TRUE(fs::is_empty(m_folder / "outside"));
}

} // namespace
} // namespace kqlib::test
