// Tests of the begun record: against a model of TLS, every byte goes out once.
#include "net/sockets/TLSRecordSender.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace kqlib::test {
namespace {

using OUTCOME = TLSRecordSender::OUTCOME;

constexpr unsigned long RECORD = 16384;

const unsigned char* Bytes(const std::string& text)
{
    return reinterpret_cast<const unsigned char*>(text.data());
}

/// What TLS does with the records that it is offered: the script, then SENT. Once it has begun one it wants the very
/// same bytes again, and as many.
class ModelTLS
{
public:
    OUTCOME Write(const unsigned char* bytes, unsigned long& size)
    {
        const std::string offered(reinterpret_cast<const char*>(bytes), size);
        EXPECT_GT(size, 0U);
        EXPECT_LE(size, RECORD);
        if (!begun.empty()) {
            EXPECT_TRUE(offered == begun) << "TLS would break the connection";
        }
        OUTCOME outcome = next();
        if (outcome == OUTCOME::WAITS && !begun.empty())
            outcome = OUTCOME::BEGUN;
        if (outcome == OUTCOME::BEGUN)
            begun = offered;
        if (outcome == OUTCOME::SENT) {
            size = std::min<unsigned long>(size, mostPerRecord);
            wire += offered.substr(0, size);
            begun.clear();
        }
        return outcome;
    }
    /// What has gone out or is on its way.
    std::string GetTaken() const { return wire + begun.substr(0, mostPerRecord); }

    std::function<OUTCOME()> next = [] { return OUTCOME::SENT; };
    unsigned long mostPerRecord = RECORD; ///< fewer when the peer has asked for smaller records
    std::string wire;
    std::string begun;
};

class TLSRecordSenderTest : public testing::Test
{
protected:
    void Script(std::vector<OUTCOME> outcomes)
    {
        m_tls.next = [outcomes = std::move(outcomes), at = std::size_t{0}]() mutable {
            return at < outcomes.size() ? outcomes[at++] : OUTCOME::SENT;
        };
    }
    /// Offers text; how much of it has gone out.
    unsigned long Send(const std::string& text, OUTCOME expected = OUTCOME::SENT)
    {
        unsigned long len = text.size();
        EXPECT_EQ(m_sender.Send(Bytes(text), len), expected);
        EXPECT_EQ(len > 0, expected == OUTCOME::SENT);
        return len;
    }

    ModelTLS m_tls;
    TLSRecordSender m_sender{
        [this](const unsigned char* bytes, unsigned long& size) { return m_tls.Write(bytes, size); }};
};

TEST_F(TLSRecordSenderTest, Send_MuchAtOnce_RecordByRecordAtMost131072Bytes)
{
    const std::string much(200000, 'm');
    EXPECT_EQ(Send(much), 131072U);
    EXPECT_TRUE(m_tls.wire == much.substr(0, 131072));
    EXPECT_EQ(Send(much.substr(0, 16385)), 16385U);
}

TEST_F(TLSRecordSenderTest, Send_RecordBegun_SameBytesGoOnceAndTheRestFollows)
{
    Script({OUTCOME::SENT, OUTCOME::BEGUN, OUTCOME::BEGUN});
    const std::string text = std::string(RECORD, 'a') + std::string(RECORD, 'b') + "tail";
    EXPECT_EQ(Send(text), RECORD);
    EXPECT_EQ(Send(text.substr(RECORD), OUTCOME::BEGUN), 0U);
    EXPECT_EQ(Send(text.substr(RECORD)), RECORD + 4);
    EXPECT_TRUE(m_tls.wire == text);
}

TEST_F(TLSRecordSenderTest, Send_ShorterPiecesThatRepeatTheRecord_EachByteOnce)
{
    Script({OUTCOME::BEGUN, OUTCOME::BEGUN});
    EXPECT_EQ(Send("0123456789", OUTCOME::BEGUN), 0U);
    EXPECT_EQ(Send("0123", OUTCOME::BEGUN), 0U);
    EXPECT_EQ(Send("012"), 3U);
    EXPECT_EQ(m_tls.wire, "0123456789");
    EXPECT_EQ(Send("3"), 1U);
    EXPECT_EQ(Send("456789and on"), 12U) << "the rest of the record, and what follows it";
    EXPECT_EQ(m_tls.wire, "0123456789and on");
    EXPECT_EQ(Send("0123456789"), 10U) << "the record is over: this is new";
    EXPECT_EQ(m_tls.wire, "0123456789and on0123456789");
}

TEST_F(TLSRecordSenderTest, Send_OtherBytes_AfterTheWholeRecord)
{
    Script({OUTCOME::BEGUN});
    EXPECT_EQ(Send("0123456789", OUTCOME::BEGUN), 0U);
    EXPECT_EQ(Send("01x"), 3U);
    EXPECT_EQ(m_tls.wire, "012345678901x");
    EXPECT_EQ(Send("23456789"), 8U) << "the record was given up: nothing repeats it any more";
    EXPECT_EQ(m_tls.wire, "012345678901x23456789");
}

TEST_F(TLSRecordSenderTest, Send_OtherBytesInTheMiddleOfRepeating_AfterTheWholeRecord)
{
    Script({OUTCOME::BEGUN});
    EXPECT_EQ(Send("0123456789", OUTCOME::BEGUN), 0U);
    EXPECT_EQ(Send("0123"), 4U);
    EXPECT_EQ(Send("other"), 5U);
    EXPECT_EQ(m_tls.wire, "0123456789other");
}

TEST_F(TLSRecordSenderTest, Send_TLSWaitsBeforeItBegins_NothingIsKept)
{
    Script({OUTCOME::WAITS});
    EXPECT_EQ(Send("0123456789", OUTCOME::WAITS), 0U);
    EXPECT_EQ(Send("other"), 5U);
    EXPECT_EQ(m_tls.wire, "other");
}

TEST_F(TLSRecordSenderTest, Send_FailsAfterAPart_PartFirstThenTheFailure)
{
    Script({OUTCOME::SENT, OUTCOME::FAILED, OUTCOME::FAILED});
    const std::string text(2 * RECORD, 'f');
    EXPECT_EQ(Send(text), RECORD);
    EXPECT_EQ(Send(text, OUTCOME::FAILED), 0U);
}

TEST_F(TLSRecordSenderTest, Send_PeerWantsSmallerRecords_OnlyWhatWentOutCounts)
{
    m_tls.mostPerRecord = 4;
    Script({OUTCOME::BEGUN});
    EXPECT_EQ(Send("0123456789", OUTCOME::BEGUN), 0U);
    EXPECT_EQ(Send("01"), 2U);
    EXPECT_EQ(m_tls.wire, "0123");
    EXPECT_EQ(Send("other words"), 11U);
    EXPECT_EQ(m_tls.wire, "0123other words");
}

TEST_F(TLSRecordSenderTest, Finish_NothingBegun_SentWithoutAskingTLS)
{
    m_tls.next = [] {
        ADD_FAILURE() << "nothing is to be written";
        return OUTCOME::FAILED;
    };
    EXPECT_EQ(m_sender.Finish(), OUTCOME::SENT);
}

TEST_F(TLSRecordSenderTest, Finish_RecordBegun_GoesOutAndRepeatsAreKnown)
{
    Script({OUTCOME::BEGUN, OUTCOME::BEGUN, OUTCOME::FAILED});
    EXPECT_EQ(Send("0123456789", OUTCOME::BEGUN), 0U);
    EXPECT_EQ(m_sender.Finish(), OUTCOME::BEGUN);
    EXPECT_EQ(m_sender.Finish(), OUTCOME::FAILED);
    EXPECT_EQ(m_sender.Finish(), OUTCOME::SENT);
    EXPECT_EQ(m_sender.Finish(), OUTCOME::SENT);
    EXPECT_EQ(Send("0123456789"), 10U);
    EXPECT_EQ(m_tls.wire, "0123456789");
}

/// A caller that offers its text in pieces of any size, again from where it was told, and gives up now and then.
class RandomCaller
{
public:
    explicit RandomCaller(unsigned seed)
        : m_random(seed)
        , m_sender([this](const unsigned char* bytes, unsigned long& size) { return m_tls.Write(bytes, size); })
    {
        if (xBelow(4) == 0)
            m_tls.mostPerRecord = 1 + xBelow(600);
        m_tls.next = [this] {
            const unsigned draw = xBelow(10);
            return draw < 5 ? OUTCOME::SENT : draw < 9 ? OUTCOME::BEGUN : OUTCOME::WAITS;
        };
    }

    void Step()
    {
        if (xBelow(50) == 0)
            GiveUp();
        else if (xBelow(50) == 0)
            m_sender.Finish();
        else if (m_at < m_text.size())
            xOffer();
    }
    /// Goes on elsewhere in the text, where it begins otherwise than what is on its way.
    void GiveUp()
    {
        const std::string rest = m_tls.GetTaken().substr(m_expected.size());
        EXPECT_TRUE(rest == m_text.substr(m_at, rest.size())) << "only what was offered is ever taken";
        m_expected += rest;
        const char before = m_at < m_text.size() ? m_text[m_at] : '\0';
        do
            m_at = xBelow(static_cast<unsigned>(m_text.size()));
        while (m_text[m_at] == before);
    }
    void ExpectAllOnce()
    {
        GiveUp();
        while (m_sender.Finish() != OUTCOME::SENT) {
        }
        EXPECT_TRUE(m_tls.wire == m_expected);
    }

private:
    unsigned xBelow(unsigned limit) { return static_cast<unsigned>(m_random() % limit); }
    void xOffer()
    {
        const unsigned large = xBelow(100) == 0 ? 40000 : 200;
        unsigned long len = std::min<unsigned long>(1 + xBelow(large), m_text.size() - m_at);
        const unsigned long offered = len;
        const OUTCOME outcome = m_sender.Send(Bytes(m_text) + m_at, len);
        ASSERT_LE(len, offered);
        ASSERT_EQ(len > 0, outcome == OUTCOME::SENT);
        m_expected += m_text.substr(m_at, len);
        m_at += len;
    }

    static std::string xsMakeText()
    {
        std::mt19937 random(1);
        std::string text(100000, '\0');
        for (char& byte : text)
            byte = static_cast<char>(random());
        return text;
    }

    static inline const std::string m_text = xsMakeText();
    std::mt19937 m_random;
    std::size_t m_at = 0;
    std::string m_expected;
    ModelTLS m_tls;
    TLSRecordSender m_sender;
};

TEST(TLSRecordSenderModel, Send_AMillionRandomSteps_EachByteOnceInOrder)
{
    constexpr unsigned ROUNDS = 2000;
    constexpr unsigned STEPS = 500;
    for (unsigned round = 0; round < ROUNDS && !testing::Test::HasFailure(); ++round) {
        SCOPED_TRACE("seed " + std::to_string(round));
        RandomCaller caller(round);
        for (unsigned step = 0; step < STEPS; ++step)
            caller.Step();
        caller.ExpectAllOnce();
    }
}

} // namespace
} // namespace kqlib::test
