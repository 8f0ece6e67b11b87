// DataLogResults: the entries that a query found.
#pragma once

#include "common/DataLogEntry.h"
#include "common/VectorPtr.h"

namespace kqlib {

/// Owns the entries, each of the class of the query's prototype. Threads: one at a time.
class KQCOMMON_API DataLogResults
{
public:
    /// How many entries there are; Get gives them in the order of the query.
    ULONG GetCount() const { return m_entries.GetCount(); }
    /// Valid until Reset. An index at or past the count: std::out_of_range.
    const DataLogEntry& Get(ULONG index) const { return m_entries.Get(index); }
    /// Takes ownership and appends; null is ignored.
    void Give(DataLogEntry* entry) { m_entries.Give(entry); }
    /// Deletes all entries.
    void Reset() { m_entries.Reset(); }

private:
    VectorPtr<DataLogEntry> m_entries;
};

} // namespace kqlib
