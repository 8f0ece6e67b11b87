// TLSRecordSender: gives bytes to TLS record by record, and remembers one that has begun. Inside the library only.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

namespace kqlib {

/// A record that TLS has begun, of which the system took a part only, must be finished with the same bytes before
/// anything else can go out. But the caller, who was told that nothing was taken, may offer the same bytes again, fewer
/// of them, or quite others. So a copy of the begun record is kept and finished from there, and each byte goes out
/// once:
///
/// - Bytes that repeat those of the record count as the same, also when they are fewer: the caller is told of as many
///   as were offered, and the next ones are compared with the rest of the record.
/// - Others give the record up. It is finished all the same, for its beginning is on its way, and they go out after it.
///
/// Ownership: its copy, which is overwritten before its memory is given back. Threads: one at a time.
/// Errors: by outcome; nothing throws. Without memory for the copy only the same bytes can go on, and as many or more,
/// which a hash of them tells; fewer or others are FAILED.
class TLSRecordSender
{
public:
    /// What offering bytes to TLS came to.
    enum class OUTCOME : std::uint8_t
    {
        SENT,  ///< a record went out
        BEGUN, ///< a part of it went out, and TLS wants the same bytes again when there is room
        WAITS, ///< nothing of it went out: TLS waits for the peer first
        FAILED ///< the connection has failed
    };
    /// Offers one record to TLS, the only way to it. size: in, bytes offered; out, bytes that went out when it was
    /// SENT, which may be fewer. Must not throw.
    using WRITE = std::function<OUTCOME(const unsigned char* bytes, unsigned long& size)>;

    /// No record has begun. What write needs must outlive this object.
    explicit TLSRecordSender(WRITE write);
    /// Overwrites what is kept of a record.
    ~TLSRecordSender();
    TLSRecordSender(const TLSRecordSender&) = delete;
    TLSRecordSender& operator=(const TLSRecordSender&) = delete;

    /// Finishes a begun record, then sends record after record until all has gone out, 131072 bytes have, or TLS waits.
    /// len: in, bytes at data, at least 1; out, how many of them have gone out, now or before. SENT: len is above 0.
    /// Otherwise it is 0.
    OUTCOME Send(const unsigned char* data, unsigned long& len);
    /// Finishes a begun record. SENT: there is none, or none any more.
    OUTCOME Finish();

private:
    void xForget() noexcept;
    void xKeep(const unsigned char* bytes, unsigned long size) noexcept;
    bool xRepeatsUncopied(const unsigned char* data, unsigned long len) const noexcept;
    unsigned long xTell(const unsigned char* data, unsigned long len) noexcept;

    const WRITE m_write;
    std::vector<unsigned char> m_record; ///< plain bytes of the record; empty: none
    std::size_t m_told = 0;              ///< of them, those that the caller was told of; above 0 only when finished
    bool m_unfinished = false;           ///< TLS wants the bytes of the record again
    unsigned long m_uncopiedSize = 0;    ///< of a begun record without a copy; 0: there is none
    std::size_t m_uncopiedHash = 0;      ///< of its bytes
};

} // namespace kqlib
