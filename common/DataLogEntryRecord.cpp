#include "common/DataLogEntryRecord.h"

#include "common/LittleEndian.h"

#include <algorithm>
#include <cstdint>

namespace kqlib {

// What users of the DLL link to when they need its address.
constexpr ULONG DataLogEntryRecord::OWN_SIZE;

namespace {

/// Offsets of the own bytes.
constexpr ULONG START_OFFSET = 0;
constexpr ULONG END_OFFSET = 8;

/// The two's complement of 64 bits keeps times before 1970.
SLONG8 LoadTime(const unsigned char* bytes)
{
    return static_cast<SLONG8>(LoadLittleEndian<std::uint64_t>(bytes));
}

void StoreTime(unsigned char* bytes, SLONG8 milliSecs)
{
    StoreLittleEndian(bytes, static_cast<std::uint64_t>(milliSecs));
}

/// Folds the own bytes of source into target: an unset time is filled, of two set ends the later stays.
void FoldTimes(const unsigned char* source, unsigned char* target)
{
    if (LoadTime(target + START_OFFSET) == 0)
        StoreTime(target + START_OFFSET, LoadTime(source + START_OFFSET));

    const SLONG8 sourceEnd = LoadTime(source + END_OFFSET);
    const SLONG8 targetEnd = LoadTime(target + END_OFFSET);
    if (targetEnd == 0 || (sourceEnd != 0 && sourceEnd > targetEnd))
        StoreTime(target + END_OFFSET, sourceEnd);
}

} // namespace

DataLogEntryRecord::DataLogEntryRecord(ULONG blockSize)
    : DataLogEntry(OWN_SIZE, blockSize)
{
}

DataLogEntryRecord::DataLogEntryRecord(ULONG blockSize, const BinaryStore* store)
    : DataLogEntry(OWN_SIZE, blockSize, store)
{
}

TimePos DataLogEntryRecord::GetStartTime() const
{
    return TimePos(LoadTime(xGetRaw() + START_OFFSET));
}

TimePos DataLogEntryRecord::GetEndTime() const
{
    return TimePos(LoadTime(xGetRaw() + END_OFFSET));
}

void DataLogEntryRecord::SetStartTime(const TimePos& time)
{
    StoreTime(xGetRaw() + START_OFFSET, time.GetMilliSeconds());
}

void DataLogEntryRecord::SetEndTime(const TimePos& time)
{
    StoreTime(xGetRaw() + END_OFFSET, time.GetMilliSeconds());
}

void DataLogEntryRecord::SetStartTimeNow()
{
    SetStartTime(TimePos::sNow());
}

void DataLogEntryRecord::SetEndTimeNow()
{
    SetEndTime(TimePos::sNow());
}

void DataLogEntryRecord::xMergeInto(unsigned char* target) const
{
    FoldTimes(xGetRaw(), target);
}

void DataLogEntryRecord::xSimpleCombineInto(unsigned char* target) const
{
    FoldTimes(xGetRaw(), target);
}

ULONG DataLogEntryRecord::xGetSizeReq() const
{
    return OWN_SIZE;
}

unsigned char* DataLogEntryRecord::xGetData()
{
    return xGetRaw() + OWN_SIZE;
}

const unsigned char* DataLogEntryRecord::xGetData() const
{
    return xGetRaw() + OWN_SIZE;
}

void DataLogEntryRecord::xMakeStringSafe(ULONG offset, ULONG size)
{
    const ULONG blockSize = xGetRawFullSize() - OWN_SIZE;
    if (size == 0 || offset >= blockSize || size > blockSize - offset)
        return;
    unsigned char* const field = xGetData() + offset;
    field[size - 1] = 0;
    unsigned char* const end = std::find(field, field + size, 0);
    std::replace_if(
        field, end, [](unsigned char byte) { return byte < 0x20 || byte == 0x7F; }, '_');
    std::fill(end, field + size, static_cast<unsigned char>(0));
}

} // namespace kqlib
