// VirtualSlot: where a virtual function stands in its class's table, for tests of the binary interface.
#pragma once

#include <cstddef>
#include <cstring>
#include <type_traits>
#include <vector>

namespace kqlib::test {

/// The index of a virtual function in the table of its class's first base, which the destructor begins with two places.
/// Reads the pointer's representation as GCC and Clang have it on every system built for here (Itanium C++ ABI, 2.3:
/// the offset in the table, plus 1). A function that is not virtual gives a number far beyond any table.
template <class FUNCTION> std::size_t VirtualSlot(FUNCTION function)
{
    static_assert(std::is_member_function_pointer_v<FUNCTION>);
    std::size_t offset;
    std::memcpy(&offset, &function, sizeof offset);
    return (offset - 1) / sizeof(void*);
}

using SLOTS = std::vector<std::size_t>;

/// The slots from first to last, both included.
inline SLOTS SlotRange(std::size_t first, std::size_t last)
{
    SLOTS range;
    for (std::size_t slot = first; slot <= last; ++slot)
        range.push_back(slot);
    return range;
}

} // namespace kqlib::test
