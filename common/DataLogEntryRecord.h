// DataLogEntryRecord: a binary log record with a start and an end time.
#pragma once

#include "common/DataLogEntry.h"
#include "common/TimePos.h"

namespace kqlib {

/// Own bytes: 16, little-endian: start then end, each signed 64-bit milliseconds since 1970 UTC, 0 = unset. Folding
/// keeps the target's times; an unset one is filled from this entry, and of two ends the later stays.
class KQCOMMON_API DataLogEntryRecord : public DataLogEntry
{
public:
    /// Bytes before the block of the derived class; part of the stored format.
    static constexpr ULONG OWN_SIZE = 16;

    /// When what the record tells of began and ended, to the millisecond; unset at first.
    ///@{
    TimePos GetStartTime() const;
    TimePos GetEndTime() const;
    void SetStartTime(const TimePos& time);
    void SetEndTime(const TimePos& time);
    void SetStartTimeNow();
    void SetEndTimeNow();
    ///@}

protected:
    /// blockSize: bytes of the derived class, all zero at first, as the times.
    explicit DataLogEntryRecord(ULONG blockSize);
    /// Over stored bytes, own bytes first; copied, short ones padded with zeros, long ones cut. store may be null.
    DataLogEntryRecord(ULONG blockSize, const BinaryStore* store);
    DataLogEntryRecord(const DataLogEntryRecord&) = default;
    DataLogEntryRecord& operator=(const DataLogEntryRecord&) = default;

    void xMergeInto(unsigned char* target) const override;
    void xSimpleCombineInto(unsigned char* target) const override;
    /// The own bytes alone: derived classes add their block size.
    ULONG xGetSizeReq() const override;

    /// The derived class's block, blockSize bytes; valid until ResetDestroySelf.
    ///@{
    unsigned char* xGetData();
    const unsigned char* xGetData() const;
    ///@}
    /// Terminates the text field of size bytes at offset of the block, turns control bytes in it into "_", and clears
    /// what stands behind the terminator.
    void xMakeStringSafe(ULONG offset, ULONG size);
};

} // namespace kqlib
