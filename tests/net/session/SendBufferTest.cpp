#include "net/session/SendBuffer.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace kqlib::test {
namespace {

class SendBufferTest : public testing::Test
{
protected:
    bool Add(const std::string& text)
    {
        return m_buffer.Add(reinterpret_cast<const unsigned char*>(text.data()), static_cast<ULONG>(text.size()),
                            [this](const unsigned char* data, ULONG length) { return xSend(data, length); });
    }
    bool Purge()
    {
        return m_buffer.Purge([this](const unsigned char* data, ULONG length) { return xSend(data, length); });
    }

    SendBuffer m_buffer;
    std::vector<std::string> m_sent;
    bool m_answer = true; ///< of the sender

private:
    bool xSend(const unsigned char* data, ULONG length)
    {
        m_sent.emplace_back(reinterpret_cast<const char*>(data), length);
        return m_answer;
    }
};

using TEXTS = std::vector<std::string>;

TEST_F(SendBufferTest, Make_Capacity_IsMadeFromThenOn)
{
    EXPECT_FALSE(m_buffer.IsMade());
    m_buffer.Make(4);
    EXPECT_TRUE(m_buffer.IsMade());
    m_buffer.Discard();
    EXPECT_TRUE(m_buffer.IsMade());
}

TEST_F(SendBufferTest, Add_WhatFitsExactly_WaitsForThePurge)
{
    m_buffer.Make(4);
    EXPECT_TRUE(Add("ab"));
    EXPECT_TRUE(Add(""));
    EXPECT_TRUE(Add("cd"));
    EXPECT_EQ(m_sent, TEXTS{});
    EXPECT_TRUE(Purge());
    EXPECT_TRUE(Purge());
    EXPECT_EQ(m_sent, TEXTS{"abcd"});
}

TEST_F(SendBufferTest, Add_MoreThanFits_SendsFullBuffersAndKeepsTheRest)
{
    m_buffer.Make(4);
    EXPECT_TRUE(Add("abc"));
    EXPECT_TRUE(Add("defghijkl"));
    EXPECT_EQ(m_sent, (TEXTS{"abcd", "efgh"}));
    EXPECT_TRUE(Purge());
    EXPECT_EQ(m_sent.back(), "ijkl");
}

TEST_F(SendBufferTest, Add_SenderSaysNo_FalseAndTheBufferStaysFull)
{
    m_buffer.Make(4);
    m_answer = false;
    EXPECT_FALSE(Add("abcdefgh"));
    EXPECT_EQ(m_sent, TEXTS{"abcd"});
    m_answer = true;
    EXPECT_TRUE(Add("x"));
    EXPECT_EQ(m_sent, (TEXTS{"abcd", "abcd"}));
    EXPECT_TRUE(Purge());
    EXPECT_EQ(m_sent.back(), "x");
}

TEST_F(SendBufferTest, Purge_SenderSaysNoOrThrows_EmptyAllTheSame)
{
    m_buffer.Make(4);
    m_answer = false;
    EXPECT_TRUE(Add("ab"));
    EXPECT_FALSE(Purge());
    EXPECT_TRUE(Purge());
    EXPECT_TRUE(Add("cd"));
    EXPECT_THROW(m_buffer.Purge([](const unsigned char*, ULONG) -> bool { throw std::runtime_error(""); }),
                 std::runtime_error);
    EXPECT_TRUE(Purge());
    EXPECT_EQ(m_sent, TEXTS{"ab"});
}

TEST_F(SendBufferTest, Make_AgainWhileItHoldsBytes_KeepsThemUnlessTheSizeChanges)
{
    m_buffer.Make(4);
    EXPECT_TRUE(Add("ab"));
    m_buffer.Make(4);
    EXPECT_TRUE(Purge());
    EXPECT_EQ(m_sent, TEXTS{"ab"});
    EXPECT_TRUE(Add("cd"));
    m_buffer.Make(5);
    EXPECT_TRUE(Purge());
    EXPECT_EQ(m_sent, TEXTS{"ab"});
    EXPECT_TRUE(Add("fghij"));
    EXPECT_EQ(m_sent, TEXTS{"ab"}) << "the new size";
}

TEST_F(SendBufferTest, Discard_BytesInIt_AreNeverSent)
{
    m_buffer.Make(4);
    EXPECT_TRUE(Add("ab"));
    m_buffer.Discard();
    EXPECT_TRUE(Purge());
    EXPECT_EQ(m_sent, TEXTS{});
}

} // namespace
} // namespace kqlib::test
