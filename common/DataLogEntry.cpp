#include "common/DataLogEntry.h"

#include "common/SettingsTransportSet.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <typeinfo>

namespace kqlib {

namespace {

const char* const KEY_DATA = "entrydata";

} // namespace

DataLogEntry::DataLogEntry(ULONG ownSize, ULONG blockSize)
    : m_size(ownSize + blockSize)
{
}

DataLogEntry::DataLogEntry(ULONG ownSize, ULONG blockSize, const BinaryStore* store)
    : m_size(ownSize + blockSize)
{
    if (!store || store->GetSize() == 0)
        return;
    std::memcpy(xGetRaw(), store->GetData(), std::min(store->GetSize(), m_size));
}

void DataLogEntry::Reset()
{
    ResetKeepMemory();
}

bool DataLogEntry::xWriteTo(SettingsTransportSet& set) const
{
    xNeedBuffer();
    return set.AddBinaryStore(KEY_DATA, m_store);
}

bool DataLogEntry::xReadFrom(const SettingsTransportSet& set)
{
    BinaryStore stored;
    if (!set.GetBinaryStore(KEY_DATA, stored))
        return true;
    return SetRawData(stored.GetData(), stored.GetSize());
}

bool DataLogEntry::IsSame(const SettingsTransferable& other) const
{
    const auto* entry = dynamic_cast<const DataLogEntry*>(&other);
    return entry && IsSame(*entry);
}

bool DataLogEntry::IsSame(const DataLogEntry& other) const
{
    return xIsLike(other) && std::memcmp(xGetRaw(), other.xGetRaw(), m_size) == 0;
}

void DataLogEntry::ResetKeepMemory()
{
    std::memset(xGetRaw(), 0, m_size);
}

void DataLogEntry::ResetDestroySelf()
{
    m_store.ResetDeleteMemory();
}

void DataLogEntry::xMakeStringsSafe() {}

bool DataLogEntry::MergeInto(DataLogEntry& target, Messages& /*messages*/) const
{
    if (!xIsLike(target))
        return false;
    xMergeInto(target.xGetRaw());
    return true;
}

bool DataLogEntry::SimpleCombineInto(DataLogEntry& target, Messages& /*messages*/) const
{
    if (!xIsLike(target))
        return false;
    xSimpleCombineInto(target.xGetRaw());
    return true;
}

bool DataLogEntry::CopyDataFrom(const DataLogEntry& source, Messages& /*messages*/)
{
    return xIsLike(source) && SetRawData(source.xGetRaw(), source.m_size);
}

const unsigned char* DataLogEntry::GetRawData() const
{
    return xGetRaw();
}

bool DataLogEntry::SetRawData(const unsigned char* bytes, ULONG size)
{
    if (size != m_size)
        return false;
    // memmove: the bytes may be this entry's own.
    std::memmove(xGetRaw(), bytes, m_size);
    xMakeStringsSafe();
    return true;
}

bool DataLogEntry::xIsLike(const DataLogEntry& other) const
{
    return typeid(*this) == typeid(other) && m_size == other.m_size;
}

void DataLogEntry::xMakeBuffer() const
{
    m_store.SetZeros(m_size);
}

} // namespace kqlib
