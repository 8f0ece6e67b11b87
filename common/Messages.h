// Messages: the ordered list of numeric message codes that checks and resolvers report with.
#pragma once

#include "common/Types.h"
#include "platform/Export.h"

#include <vector>

namespace kqlib {

/// Message codes in the order in which they were added, repeats kept. The texts belong to the host application.
///
/// Ownership: a plain value. Threads: one at a time. Errors: Get with an index past the end throws std::out_of_range.
class KQCOMMON_API Messages
{
public:
    /// Appends a code.
    void AddMessage(int code) { m_codes.push_back(code); }
    /// How many codes there are, repeats counted.
    ULONG GetMessageCount() const { return static_cast<ULONG>(m_codes.size()); }
    /// The code at index, in the order of adding.
    int Get(ULONG index) const { return m_codes.at(index); }
    /// Removes all codes.
    void Reset() { m_codes.clear(); }

private:
    std::vector<int> m_codes;
};

} // namespace kqlib
