// NetCounterBlock: the 22 counters that every statistics record holds, and their stored form.
#pragma once

#include "common/Types.h"
#include "platform/Export.h"

#include <cstdint>

namespace kqlib {

/// The one table of the counters: their order, widths, offsets and the way they are folded.
///
/// The stored block is 104 bytes, little-endian and packed. DataInBytes, DataOutBytes, CommandsIn and CommandsOut have
/// 64 bits and stand unaligned, all others have 32, so the bytes are never reached through a pointer to a number.
///
/// Ownership: none, static functions over the caller's bytes. Threads: whoever owns the bytes. Errors: none.
class KQNET_API NetCounterBlock
{
public:
    /// A counter's place in every record, setting and walk. Part of the stored formats: never reordered.
    enum COUNTER : std::uint32_t
    {
        CURRENT_CONNECTIONS_IN = 0,    ///< incoming connections open now
        CURRENT_CONNECTIONS_OUT = 1,   ///< outgoing connections open now
        CONNECTIONS_IN = 2,            ///< incoming connections accepted
        CONNECTIONS_OUT_SUCCESSES = 3, ///< outgoing connections made
        CONNECTIONS_OUT_FAILS = 4,     ///< outgoing connections that failed
        DATA_IN_BYTES = 5,             ///< bytes received; 64 bits
        DATA_OUT_BYTES = 6,            ///< bytes sent; 64 bits
        COMMANDS_IN = 7,               ///< commands received; 64 bits
        COMMANDS_OUT = 8,              ///< commands (replies) sent; 64 bits
        SSL_SUCCESSES = 9,             ///< TLS handshakes that succeeded
        SSL_FAILS = 10,                ///< TLS handshakes that failed
        LOGIN_SUCCESSES = 11,          ///< successful logins
        LOGIN_FAILS = 12,              ///< failed logins
        DIRS_CREATED = 13,             ///< directories created
        DIRS_DELETED = 14,             ///< directories deleted
        DIRS_MOVED = 15,               ///< directories moved to another name or place
        DIRS_READ = 16,                ///< directory listings
        FILES_CREATED = 17,            ///< files created, uploads included
        FILES_APPENDED = 18,           ///< files appended to
        FILES_DELETED = 19,            ///< files deleted
        FILES_MOVED = 20,              ///< files moved to another name or place
        FILES_READ = 21,               ///< files read, downloads included
        COUNTER_COUNT = 22             ///< how many there are
    };

    /// How two values of a counter become one.
    enum class FOLD
    {
        MERGE,  ///< of one place in time: the two current-connection counters take the larger value, others add
        COMBINE ///< of two places: every counter adds
    };

    /// Size of the stored block in bytes.
    static constexpr ULONG SIZE = 104;

    /// Whether the counter is stored in 64 bits.
    static constexpr bool sIsWide(COUNTER counter) { return counter >= DATA_IN_BYTES && counter <= COMMANDS_OUT; }

    /// Offset of the counter in the stored block, in bytes.
    static constexpr ULONG sGetOffset(COUNTER counter)
    {
        if (counter <= DATA_IN_BYTES)
            return 4UL * counter;
        if (counter <= SSL_SUCCESSES)
            return 20 + 8UL * (counter - DATA_IN_BYTES);
        return 52 + 4UL * (counter - SSL_SUCCESSES);
    }

    /// The counter's value, a 32-bit one widened.
    static ULONG8 sGet(const unsigned char* block, COUNTER counter);
    /// Stores the low 32 bits of value, or all 64 of a wide counter.
    static void sSet(unsigned char* block, COUNTER counter, ULONG8 value);
    /// Adds in the counter's own width; both widths wrap.
    static void sIncrease(unsigned char* block, COUNTER counter, ULONG8 amount);
    /// Folds every counter of source into target.
    static void sFoldInto(unsigned char* target, const unsigned char* source, FOLD fold);
};

static_assert(NetCounterBlock::sGetOffset(NetCounterBlock::DATA_IN_BYTES) == 20);
static_assert(NetCounterBlock::sGetOffset(NetCounterBlock::COMMANDS_OUT) == 44);
static_assert(NetCounterBlock::sGetOffset(NetCounterBlock::SSL_SUCCESSES) == 52);
static_assert(NetCounterBlock::sGetOffset(NetCounterBlock::FILES_READ) + 4 == NetCounterBlock::SIZE);

} // namespace kqlib
