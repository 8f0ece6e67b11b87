// The counters that every statistics record has, with their operations, for walks over all of them in tests.
#pragma once

#include "common/Types.h"

#include <functional>
#include <vector>

namespace kqlib::test {

/// One counter of the class RECORD. increase is empty for the two current-connection counters.
template <class RECORD> struct COUNTER_OPS
{
    const char* name;
    ULONG offset; ///< in the stored block, in bytes
    bool wide;    ///< stored in 64 bits
    std::function<ULONG8(const RECORD&)> get;
    std::function<void(RECORD&, ULONG8)> set;
    std::function<void(RECORD&, ULONG)> increase;
};

// The operations of all three classes have the same names; only the width of the values differs.
#define KQ_SET_ONLY(NAME, OFFSET, WIDE)                                                                                \
    COUNTER_OPS<RECORD>                                                                                                \
    {                                                                                                                  \
#NAME, OFFSET, WIDE, [](const RECORD& record) -> ULONG8 { return record.Get##NAME(); },                        \
            [](RECORD& record, ULONG8 value) { record.Set##NAME(static_cast<decltype(+record.Get##NAME())>(value)); }, \
            nullptr       \
    }
#define KQ_COUNTER(NAME, OFFSET, WIDE)                                                                                 \
    COUNTER_OPS<RECORD>                                                                                                \
    {                                                                                                                  \
#NAME, OFFSET, WIDE, [](const RECORD& record) -> ULONG8 { return record.Get##NAME(); },                        \
            [](RECORD& record, ULONG8 value) { record.Set##NAME(static_cast<decltype(+record.Get##NAME())>(value)); }, \
            [](RECORD& record, ULONG amount) { record.Increase##NAME(amount); }       \
    }

/// All 22 counters in the order of every record.
template <class RECORD> std::vector<COUNTER_OPS<RECORD>> AllCounters()
{
    return {
        KQ_SET_ONLY(CurrentConnectionsIn, 0, false),
        KQ_SET_ONLY(CurrentConnectionsOut, 4, false),
        KQ_COUNTER(ConnectionsIn, 8, false),
        KQ_COUNTER(ConnectionsOutSuccesses, 12, false),
        KQ_COUNTER(ConnectionsOutFails, 16, false),
        KQ_COUNTER(DataInBytes, 20, true),
        KQ_COUNTER(DataOutBytes, 28, true),
        KQ_COUNTER(CommandsIn, 36, true),
        KQ_COUNTER(CommandsOut, 44, true),
        KQ_COUNTER(SSLSuccesses, 52, false),
        KQ_COUNTER(SSLFails, 56, false),
        KQ_COUNTER(LoginSuccesses, 60, false),
        KQ_COUNTER(LoginFails, 64, false),
        KQ_COUNTER(DirsCreated, 68, false),
        KQ_COUNTER(DirsDeleted, 72, false),
        KQ_COUNTER(DirsMoved, 76, false),
        KQ_COUNTER(DirsRead, 80, false),
        KQ_COUNTER(FilesCreated, 84, false),
        KQ_COUNTER(FilesAppended, 88, false),
        KQ_COUNTER(FilesDeleted, 92, false),
        KQ_COUNTER(FilesMoved, 96, false),
        KQ_COUNTER(FilesRead, 100, false),
    };
}

#undef KQ_SET_ONLY
#undef KQ_COUNTER

} // namespace kqlib::test
