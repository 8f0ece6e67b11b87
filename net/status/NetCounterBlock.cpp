#include "net/status/NetCounterBlock.h"

#include "common/LittleEndian.h"

#include <algorithm>

namespace kqlib {

namespace {

/// Adds in the width of T, without a look at the counter in between: every command and every send increases several.
template <class T> void Add(unsigned char* field, ULONG8 amount)
{
    StoreLittleEndian(field, static_cast<T>(LoadLittleEndian<T>(field) + static_cast<T>(amount)));
}

} // namespace

// What users of the DLL link to when they need its address.
constexpr ULONG NetCounterBlock::SIZE;

ULONG8 NetCounterBlock::sGet(const unsigned char* block, COUNTER counter)
{
    const unsigned char* field = block + sGetOffset(counter);
    return sIsWide(counter) ? LoadLittleEndian<ULONG8>(field) : LoadLittleEndian<std::uint32_t>(field);
}

void NetCounterBlock::sSet(unsigned char* block, COUNTER counter, ULONG8 value)
{
    unsigned char* field = block + sGetOffset(counter);
    if (sIsWide(counter))
        StoreLittleEndian<ULONG8>(field, value);
    else
        StoreLittleEndian<std::uint32_t>(field, static_cast<std::uint32_t>(value));
}

void NetCounterBlock::sIncrease(unsigned char* block, COUNTER counter, ULONG8 amount)
{
    unsigned char* field = block + sGetOffset(counter);
    if (sIsWide(counter))
        Add<ULONG8>(field, amount);
    else
        Add<std::uint32_t>(field, amount);
}

void NetCounterBlock::sFoldInto(unsigned char* target, const unsigned char* source, FOLD fold)
{
    for (std::uint32_t index = 0; index < COUNTER_COUNT; ++index) {
        const auto counter = static_cast<COUNTER>(index);
        const ULONG8 value = sGet(source, counter);
        if (fold == FOLD::MERGE && counter <= CURRENT_CONNECTIONS_OUT)
            sSet(target, counter, std::max(sGet(target, counter), value));
        else
            sIncrease(target, counter, value);
    }
}

} // namespace kqlib
