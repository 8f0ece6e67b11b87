#include "net/status/NetSessionActivity.h"

namespace kqlib {

// What users of the DLL link to when they need its address.
constexpr ULONG NetSessionActivity::BLOCK_SIZE;

NetSessionActivity::NetSessionActivity()
    : DataLogEntryTime(BLOCK_SIZE)
{
}

NetSessionActivity::NetSessionActivity(const BinaryStore* store)
    : DataLogEntryTime(BLOCK_SIZE, store)
{
}

NetSessionActivity* NetSessionActivity::Spawn(bool copy) const
{
    return copy ? new NetSessionActivity(*this) : new NetSessionActivity();
}

void NetSessionActivity::xMergeInto(unsigned char* target) const
{
    DataLogEntryTime::xMergeInto(target);
    NetCounterBlock::sFoldInto(target + DataLogEntryTime::xGetSizeReq(), xGetCounters(), NetCounterBlock::FOLD::MERGE);
}

void NetSessionActivity::xSimpleCombineInto(unsigned char* target) const
{
    DataLogEntryTime::xSimpleCombineInto(target);
    NetCounterBlock::sFoldInto(target + DataLogEntryTime::xGetSizeReq(), xGetCounters(),
                               NetCounterBlock::FOLD::COMBINE);
}

ULONG NetSessionActivity::xGetSizeReq() const
{
    return DataLogEntryTime::xGetSizeReq() + BLOCK_SIZE;
}

DataLogEntryTime* NetSessionActivity::SpawnEntry(unsigned long, bool copy) const
{
    return Spawn(copy);
}

} // namespace kqlib
