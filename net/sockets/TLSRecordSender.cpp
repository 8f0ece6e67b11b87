#include "net/sockets/TLSRecordSender.h"

#include "common/WithinMemory.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <openssl/crypto.h>
#include <string_view>
#include <utility>

namespace kqlib {

namespace {

constexpr unsigned long MAX_RECORD_SIZE = 16384;
constexpr unsigned long MAX_SEND_SIZE = 8 * MAX_RECORD_SIZE; // of one Send, so that it ends soon

std::size_t HashOf(const unsigned char* bytes, unsigned long size) noexcept
{
    return std::hash<std::string_view>()({reinterpret_cast<const char*>(bytes), size});
}

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
    OUTCOME outcome = xRepeatsUncopied(data, offered) ? OUTCOME::SENT : Finish();
    if (outcome != OUTCOME::SENT)
        return outcome;
    unsigned long sent = xTell(data, offered);
    // Each record is offered alone: with more at hand TLS would finish a begun one, begin another and tell of neither.
    while (outcome == OUTCOME::SENT && sent < offered) {
        const unsigned long record = m_uncopiedSize > 0 ? m_uncopiedSize : std::min(offered - sent, MAX_RECORD_SIZE);
        unsigned long size = record;
        outcome = m_write(data + sent, size);
        if (outcome == OUTCOME::SENT) {
            sent += size;
            m_uncopiedSize = 0;
        } else if (outcome == OUTCOME::BEGUN) {
            xKeep(data + sent, record);
        }
    }
    len = sent;
    return sent > 0 ? OUTCOME::SENT : outcome;
}

TLSRecordSender::OUTCOME TLSRecordSender::Finish()
{
    if (m_uncopiedSize > 0)
        return OUTCOME::FAILED; // its bytes are not to be had any more
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
    m_uncopiedSize = m_unfinished ? 0 : size;
    m_uncopiedHash = m_unfinished ? 0 : HashOf(bytes, size);
}

/// Whether bytes begin with those of a record that there was no memory to copy. TLS would take any others for them, and
/// they would be lost.
bool TLSRecordSender::xRepeatsUncopied(const unsigned char* data, unsigned long len) const noexcept
{
    return m_uncopiedSize > 0 && len >= m_uncopiedSize && HashOf(data, m_uncopiedSize) == m_uncopiedHash;
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
