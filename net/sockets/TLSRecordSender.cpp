#include "net/sockets/TLSRecordSender.h"

#include "common/WithinMemory.h"

#include <algorithm>
#include <cstring>
#include <openssl/crypto.h>
#include <utility>

namespace kqlib {

namespace {

constexpr unsigned long MAX_RECORD_SIZE = 16384;
constexpr unsigned long MAX_SEND_SIZE = 8 * MAX_RECORD_SIZE; // of one Send, so that it ends soon

} // namespace

TLSRecordSender::TLSRecordSender(WRITE write)
    : m_write(std::move(write))
{
}

TLSRecordSender::~TLSRecordSender()
{
    xForget();
}

TLSRecordSender::OUTCOME TLSRecordSender::Send(const unsigned char* data, unsigned long& len)
{
    const unsigned long offered = std::min(len, MAX_SEND_SIZE);
    len = 0;
    OUTCOME outcome = Finish();
    if (outcome != OUTCOME::SENT)
        return outcome;
    unsigned long sent = xTell(data, offered);
    // Each record is offered alone: with more at hand TLS would finish a begun one, begin another and tell of neither.
    while (outcome == OUTCOME::SENT && sent < offered) {
        const unsigned long record = std::min(offered - sent, MAX_RECORD_SIZE);
        unsigned long size = record;
        outcome = m_write(data + sent, size);
        if (outcome == OUTCOME::SENT)
            sent += size;
        else if (outcome == OUTCOME::BEGUN)
            xKeep(data + sent, record);
    }
    len = sent;
    return sent > 0 ? OUTCOME::SENT : outcome;
}

TLSRecordSender::OUTCOME TLSRecordSender::Finish()
{
    if (!m_unfinished)
        return OUTCOME::SENT;
    unsigned long size = m_record.size();
    const OUTCOME outcome = m_write(m_record.data(), size);
    if (outcome == OUTCOME::SENT) {
        m_unfinished = false;
        // A peer may have asked for smaller records; what lies behind the first of them never began.
        OPENSSL_cleanse(m_record.data() + size, m_record.size() - size);
        m_record.resize(size);
    }
    return outcome;
}

void TLSRecordSender::xForget() noexcept
{
    OPENSSL_cleanse(m_record.data(), m_record.size());
    std::vector<unsigned char>().swap(m_record);
    m_told = 0;
    m_unfinished = false;
}

void TLSRecordSender::xKeep(const unsigned char* bytes, unsigned long size) noexcept
{
    m_unfinished = RunWithinMemory([&] { m_record.assign(bytes, bytes + size); });
}

/// How many of the bytes went out with the record already. The others go on from there; bytes that are not the record's
/// give it up.
unsigned long TLSRecordSender::xTell(const unsigned char* data, unsigned long len) noexcept
{
    const std::size_t same = std::min<std::size_t>(len, m_record.size() - m_told);
    if (same == 0)
        return 0;
    const bool repeats = std::memcmp(data, m_record.data() + m_told, same) == 0;
    m_told += same;
    if (!repeats || m_told == m_record.size())
        xForget();
    return repeats ? static_cast<unsigned long>(same) : 0;
}

} // namespace kqlib
