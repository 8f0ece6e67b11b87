// DataLogQuery: which entries of a data log are wanted.
#pragma once

#include "common/TimePos.h"

namespace kqlib {

/// Start and end are inclusive and open when unset; entries are counted oldest first. A plain value.
class KQCOMMON_API DataLogQuery
{
public:
    /// From when on; a record counts at its start time, an entry of a time unit at its unit.
    ///@{
    const TimePos& GetStart() const { return m_start; }
    void SetStart(const TimePos& time) { m_start = time; }
    ///@}
    /// Up to when.
    ///@{
    const TimePos& GetEnd() const { return m_end; }
    void SetEnd(const TimePos& time) { m_end = time; }
    ///@}
    /// How many matching entries to pass over first; 0 at first.
    ///@{
    ULONG GetFirst() const { return m_first; }
    void SetFirst(ULONG first) { m_first = first; }
    ///@}
    /// How many to deliver at most; 0, as at first, = all.
    ///@{
    ULONG GetMaxCount() const { return m_maxCount; }
    void SetMaxCount(ULONG count) { m_maxCount = count; }
    ///@}

private:
    TimePos m_start;
    TimePos m_end;
    ULONG m_first = 0;
    ULONG m_maxCount = 0;
};

} // namespace kqlib
