// DataLogResults: the entries that a query found.
#pragma once

#include "common/DataLogEntry.h"
#include "common/VectorPtr.h"

namespace kqlib {

/// Owns the entries, each of the class of the query's prototype. Threads: one at a time.
class KQCOMMON_API DataLogResults
{
public:
    /// The entries in the order of the query; valid until Reset. An index past the end: std::out_of_range.
    ULONG GetCount() const { return m_entries.GetCount(); }
    const DataLogEntry& Get(ULONG index) const { return m_entries.Get(index); }
    /// Takes ownership.
    void Give(DataLogEntry* entry) { m_entries.Give(entry); }
    void Reset() { m_entries.Reset(); }

private:
    VectorPtr<DataLogEntry> m_entries;
};

} // namespace kqlib
