// The rules themselves stand in the tests of the session's exchange; here, what the splitter leaves behind.
#include "net/session/CommandSplitter.h"

#include <gtest/gtest.h>

#include <string>

namespace kqlib::test {
namespace {

using RESULT = CommandSplitter::RESULT;

class CommandSplitterTest : public testing::Test
{
protected:
    /// The bytes are the whole content of the buffer from here on.
    void Receive(const std::string& bytes)
    {
        m_bytes = bytes;
        m_buffer.capacity = m_buffer.length = static_cast<ULONG>(m_bytes.size());
        m_buffer.buffer = reinterpret_cast<unsigned char*>(m_bytes.data());
        m_buffer.position = 0;
    }
    RESULT Split() { return m_splitter.Split(m_buffer, m_command); }

    CommandSplitter m_splitter;
    NetTCP::RECVBUF m_buffer{};
    String m_command;

private:
    std::string m_bytes;
};

TEST_F(CommandSplitterTest, Split_NoBytes_Incomplete)
{
    EXPECT_EQ(Split(), RESULT::INCOMPLETE);
    EXPECT_TRUE(m_command.empty());
}

TEST_F(CommandSplitterTest, Split_CommandAndMore_StopsBehindItsEnd)
{
    Receive("ab\r\ncd");
    EXPECT_EQ(Split(), RESULT::COMMAND);
    EXPECT_EQ(m_command, "ab");
    EXPECT_EQ(m_buffer.position, 4U);
    EXPECT_FALSE(m_buffer.lastWasCR);
    m_command.clear();
    EXPECT_EQ(Split(), RESULT::INCOMPLETE);
    EXPECT_EQ(m_command, "cd");
    EXPECT_EQ(m_buffer.position, 6U);
}

TEST_F(CommandSplitterTest, Split_EndInTwoPieces_TheCRIsRememberedAndTakenOff)
{
    Receive("ab\r");
    EXPECT_EQ(Split(), RESULT::INCOMPLETE);
    EXPECT_TRUE(m_buffer.lastWasCR);
    Receive("\n");
    EXPECT_EQ(Split(), RESULT::COMMAND);
    EXPECT_EQ(m_command, "ab");
}

TEST_F(CommandSplitterTest, Split_MaximumSize_OversizedWithTheRestInTheBuffer)
{
    m_splitter.SetMaxSize(3);
    EXPECT_EQ(m_splitter.GetMaxSize(), 3U);
    Receive("abcd\r\n");
    EXPECT_EQ(Split(), RESULT::OVERSIZED);
    EXPECT_EQ(m_command, "abc");
    EXPECT_EQ(m_buffer.position, 3U);
    m_command.clear();
    EXPECT_EQ(Split(), RESULT::COMMAND);
    EXPECT_EQ(m_command, "d");
}

TEST_F(CommandSplitterTest, Split_CRFillsTheCommandUp_StaysInItAndItsLFEndsAnother_KeptOnPurpose)
{
    m_splitter.SetMaxSize(3);
    Receive("ab\r\n");
    EXPECT_EQ(Split(), RESULT::OVERSIZED);
    EXPECT_EQ(m_command, "ab\r");
    EXPECT_TRUE(m_buffer.lastWasCR);
    m_command.clear();
    EXPECT_EQ(Split(), RESULT::COMMAND);
    EXPECT_TRUE(m_command.empty());
}

TEST_F(CommandSplitterTest, Split_LoneLF_EndsACommandOnlyWhenItIsOn)
{
    Receive("a\nb\r\n");
    EXPECT_EQ(Split(), RESULT::COMMAND);
    EXPECT_EQ(m_command, "a\nb");
    m_splitter.SetEndIncludesLF(true);
    m_command.clear();
    Receive("\na\nb\r\n");
    EXPECT_EQ(Split(), RESULT::COMMAND);
    EXPECT_TRUE(m_command.empty());
    EXPECT_EQ(Split(), RESULT::COMMAND);
    EXPECT_EQ(m_command, "a");
    m_command.clear();
    EXPECT_EQ(Split(), RESULT::COMMAND);
    EXPECT_EQ(m_command, "b");
}

// Every text of up to six of the characters that count, whatever the setting, is judged as Split would find it.
TEST_F(CommandSplitterTest, HoldsWhole_EveryShortText_AsSplitFinds)
{
    constexpr char LETTERS[] = {'a', '\r', '\n'};
    unsigned whole = 0;
    for (unsigned length = 0, count = 1; length <= 6; ++length, count *= 3) {
        for (unsigned text = 0; text < count * 4 * 8; ++text) {
            unsigned rest = text / 32;
            std::string bytes(1, 'x'); // before the position
            for (unsigned index = 0; index < length; ++index, rest /= 3)
                bytes += LETTERS[rest % 3];
            Receive(bytes);
            m_buffer.position = 1;
            m_buffer.lastWasCR = text % 2 == 1;
            m_splitter.SetEndIncludesLF(text / 2 % 2 == 1);
            m_splitter.SetMaxSize(text / 4 % 8);
            const bool holdsWhole = m_splitter.HoldsWhole(m_buffer);
            EXPECT_EQ(m_buffer.position, 1U);
            m_command.clear();
            ASSERT_EQ(holdsWhole, Split() != RESULT::INCOMPLETE) << testing::PrintToString(bytes) << " " << text;
            whole += holdsWhole ? 1 : 0;
        }
    }
    EXPECT_GT(whole, 1000U);
}

} // namespace
} // namespace kqlib::test
