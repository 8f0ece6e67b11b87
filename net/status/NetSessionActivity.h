// NetSessionActivity: the counters of one time unit.
#pragma once

#include "common/DataLogEntryTime.h"
#include "net/status/NetCounterAccess.h"

namespace kqlib {

/// The entry of the activity log: what happened in one time unit, summed over all sessions that report into it.
///
/// Its block is 136 bytes: the counters at offset 0 (104 bytes), then 32 reserved bytes, zero in a new entry and
/// carried by copies. It has no other data.
///
/// Ownership: a plain value. Threads: one at a time. Errors: none.
class KQNET_API NetSessionActivity : public DataLogEntryTime, public NetCounterAccess<NetSessionActivity>
{
public:
    /// Size of the block in bytes; part of the stored format.
    static constexpr ULONG BLOCK_SIZE = 136;

    /// All counters 0, no time unit.
    NetSessionActivity();
    /// Reads the entry from stored bytes, which are copied; null reads as empty.
    explicit NetSessionActivity(const BinaryStore* store);
    NetSessionActivity(const NetSessionActivity&) = default;
    NetSessionActivity& operator=(const NetSessionActivity&) = default;

    [[nodiscard]] NetSessionActivity* Spawn(bool copy) const override;
    /// The same bytes: time unit, counters and reserved ones.
    friend bool operator==(const NetSessionActivity& left, const NetSessionActivity& right)
    {
        return left.IsSame(right);
    }

protected:
    /// The two current-connection counters take the larger value, kept on purpose; all others add.
    void xMergeInto(unsigned char* target) const override;
    /// Every counter adds.
    void xSimpleCombineInto(unsigned char* target) const override;
    ULONG xGetSizeReq() const override;

public:
    [[nodiscard]] DataLogEntryTime* SpawnEntry(unsigned long unused, bool copy) const override;

private:
    friend class NetCounterAccess<NetSessionActivity>;
    unsigned char* xGetCounters() { return xGetData(); }
    const unsigned char* xGetCounters() const { return xGetData(); }
};

} // namespace kqlib
