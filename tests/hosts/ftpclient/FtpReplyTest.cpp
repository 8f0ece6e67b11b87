// Tests of how replies are put together.
#include "hosts/ftpclient/FtpReply.h"

#include <gtest/gtest.h>

namespace kqlib {
namespace {

using STATE = FtpReply::STATE;

TEST(FtpReply, AddLine_OneLine_CodeAndText)
{
    FtpReply reply;
    EXPECT_EQ(reply.AddLine("220 Service ready"), STATE::COMPLETE);
    EXPECT_EQ(reply.GetCode(), 220U);
    EXPECT_EQ(reply.GetText(), "Service ready");
    EXPECT_TRUE(reply.IsSuccess());
    EXPECT_EQ(reply.AddLine("200"), STATE::COMPLETE);
    EXPECT_EQ(reply.GetText(), "");
    EXPECT_EQ(reply.AddLine("200 "), STATE::COMPLETE);
    EXPECT_EQ(reply.GetText(), "");
}

TEST(FtpReply, AddLine_ManyLines_EndsAtSameCodeAndBlank)
{
    FtpReply reply;
    EXPECT_EQ(reply.AddLine("211-Features"), STATE::INCOMPLETE);
    EXPECT_EQ(reply.AddLine(" MDTM"), STATE::INCOMPLETE);
    EXPECT_EQ(reply.AddLine("211-still"), STATE::INCOMPLETE);
    EXPECT_EQ(reply.AddLine("212 another code"), STATE::INCOMPLETE);
    EXPECT_EQ(reply.AddLine("2110 no code"), STATE::INCOMPLETE);
    EXPECT_EQ(reply.AddLine(""), STATE::INCOMPLETE);
    EXPECT_EQ(reply.AddLine("211 End"), STATE::COMPLETE);
    EXPECT_EQ(reply.GetText(), "End");
    ASSERT_EQ(reply.GetInnerLines().size(), 5U);
    EXPECT_EQ(reply.GetInnerLines()[0], " MDTM");
    EXPECT_EQ(reply.AddLine("150 next"), STATE::COMPLETE);
    EXPECT_TRUE(reply.GetInnerLines().empty());
    EXPECT_TRUE(reply.IsPreliminary());
}

TEST(FtpReply, AddLine_NoReply_WrongAndNextOneUnharmed)
{
    FtpReply reply;
    for (const char* line : {"", "2", "22", "hello", "099 no", "600 no", "2x0 no", "220x", " 220 no", "SSH-2.0-x"})
        EXPECT_EQ(reply.AddLine(line), STATE::WRONG) << line;
    EXPECT_EQ(reply.AddLine("226 done"), STATE::COMPLETE);
}

TEST(FtpReply, AddLine_ReplyWithoutEnd_WrongOnce)
{
    FtpReply reply;
    STATE state = reply.AddLine("220-hello");
    int lines = 0;
    for (; state == STATE::INCOMPLETE && lines < 100000; ++lines)
        state = reply.AddLine("220-and on");
    EXPECT_EQ(state, STATE::WRONG);
    EXPECT_LT(lines, 100000);
    EXPECT_EQ(reply.AddLine("226 done"), STATE::COMPLETE);
}

TEST(FtpReply, Classes_ByFirstDigit)
{
    FtpReply reply;
    EXPECT_EQ(reply.GetClass(), 0U);
    reply.AddLine("350 more");
    EXPECT_TRUE(reply.IsIntermediate());
    EXPECT_FALSE(reply.IsNotOffered());
    for (const char* line : {"500 x", "501 x", "502 x", "503 x", "504 x"}) {
        reply.AddLine(line);
        EXPECT_TRUE(reply.IsNotOffered()) << line;
    }
    for (const char* line : {"550 x", "530 x", "450 x", "505 x"}) {
        reply.AddLine(line);
        EXPECT_FALSE(reply.IsNotOffered()) << line;
    }
}

TEST(FtpReply, GetWholeText_SeveralLines_AllThatTheySay)
{
    FtpReply reply;
    EXPECT_EQ(reply.GetWholeText(), "");
    reply.AddLine("550 No such file");
    EXPECT_EQ(reply.GetWholeText(), "No such file");
    for (const char* line : {"530-Your account", "530- has run out", "  on Monday", "", "530 Login incorrect"})
        reply.AddLine(line);
    EXPECT_EQ(reply.GetWholeText(), "Your account; has run out; on Monday; Login incorrect");
    EXPECT_EQ(reply.GetText(), "Login incorrect");
    reply.AddLine("421 Bye");
    EXPECT_EQ(reply.GetWholeText(), "Bye") << "nothing of the one before";
    reply.AddLine("421-" + String(std::string(900, 'x')));
    for (int i = 0; i < 1000; ++i)
        reply.AddLine(String(std::string(200, 'y')));
    reply.AddLine("421 End");
    EXPECT_LT(reply.GetWholeText().size(), 1500U);
}

} // namespace
} // namespace kqlib
