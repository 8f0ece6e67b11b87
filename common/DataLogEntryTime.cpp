#include "common/DataLogEntryTime.h"

#include "common/LittleEndian.h"

#include <algorithm>
#include <cstdint>

namespace kqlib {

// What users of the DLL link to when they need its address.
constexpr ULONG DataLogEntryTime::OWN_SIZE;

namespace {

/// Length of a time unit.
constexpr SLONG8 UNIT_MS = 1000;

std::uint32_t LoadUnit(const unsigned char* bytes)
{
    return LoadLittleEndian<std::uint32_t>(bytes);
}

/// Folds the own bytes of source into target: an unset unit is filled.
void FoldUnit(const unsigned char* source, unsigned char* target)
{
    if (LoadUnit(target) == 0)
        StoreLittleEndian(target, LoadUnit(source));
}

} // namespace

DataLogEntryTime::DataLogEntryTime(ULONG blockSize)
    : DataLogEntry(OWN_SIZE, blockSize)
{
}

DataLogEntryTime::DataLogEntryTime(ULONG blockSize, const BinaryStore* store)
    : DataLogEntry(OWN_SIZE, blockSize, store)
{
}

ULONG DataLogEntryTime::GetTimeUnit() const
{
    return LoadUnit(xGetRaw());
}

void DataLogEntryTime::SetTimeUnit(ULONG unit)
{
    StoreLittleEndian(xGetRaw(), static_cast<std::uint32_t>(unit));
}

void DataLogEntryTime::SetTimeUnitNow()
{
    SetTimeUnit(sConvertToTimeUnit(TimePos::sNow()));
}

ULONG DataLogEntryTime::sConvertToTimeUnit(const TimePos& time)
{
    if (!time.IsSet())
        return 0;
    // A set time never gives "none": the ends of the range stand for what lies beyond them.
    return static_cast<ULONG>(
        std::clamp<SLONG8>(time.GetMilliSeconds() / UNIT_MS, 1, static_cast<SLONG8>(ALL_BITS_32)));
}

void DataLogEntryTime::sConvertToTimePos(ULONG unit, TimePos& out)
{
    out.SetMilliSeconds(static_cast<SLONG8>(static_cast<std::uint32_t>(unit)) * UNIT_MS);
}

void DataLogEntryTime::xMergeInto(unsigned char* target) const
{
    FoldUnit(xGetRaw(), target);
}

void DataLogEntryTime::xSimpleCombineInto(unsigned char* target) const
{
    FoldUnit(xGetRaw(), target);
}

ULONG DataLogEntryTime::xGetSizeReq() const
{
    return OWN_SIZE;
}

unsigned char* DataLogEntryTime::xGetData()
{
    return xGetRaw() + OWN_SIZE;
}

const unsigned char* DataLogEntryTime::xGetData() const
{
    return xGetRaw() + OWN_SIZE;
}

} // namespace kqlib
