// DataLogEntryTime: a binary log record of one time unit.
#pragma once

#include "common/DataLogEntry.h"
#include "common/TimePos.h"

namespace kqlib {

/// A time unit is one second: whole seconds since 1970 UTC, 0 = none. Own bytes: 4, the unit, little-endian. Folding
/// keeps the target's unit and fills an unset one.
class KQCOMMON_API DataLogEntryTime : public DataLogEntry
{
public:
    /// Bytes before the block of the derived class; part of the stored format.
    static constexpr ULONG OWN_SIZE = 4;

    /// The unit that the record counts for, 0 at first. Only the low 32 bits count.
    ///@{
    ULONG GetTimeUnit() const;
    void SetTimeUnit(ULONG unit);
    void SetTimeUnitNow();
    ///@}
    /// The unit that time lies in; 0 for an unset time only: what lies before or past all units gives the first or
    /// last.
    static ULONG sConvertToTimeUnit(const TimePos& time);
    /// The start of a unit; unset for unit 0.
    static void sConvertToTimePos(ULONG unit, TimePos& out);

protected:
    /// As the constructors of DataLogEntryRecord.
    ///@{
    explicit DataLogEntryTime(ULONG blockSize);
    DataLogEntryTime(ULONG blockSize, const BinaryStore* store);
    ///@}
    DataLogEntryTime(const DataLogEntryTime&) = default;
    DataLogEntryTime& operator=(const DataLogEntryTime&) = default;

    void xMergeInto(unsigned char* target) const override;
    void xSimpleCombineInto(unsigned char* target) const override;
    /// The own bytes alone: derived classes add their block size.
    ULONG xGetSizeReq() const override;

    /// The derived class's block, blockSize bytes; valid until ResetDestroySelf.
    ///@{
    unsigned char* xGetData();
    const unsigned char* xGetData() const;
    ///@}
};

} // namespace kqlib
