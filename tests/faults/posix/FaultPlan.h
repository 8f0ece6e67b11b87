// FaultPlan: which calls of the libraries to the platform layer fail, or come out late or short, in a test.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace kqlib::test {

/// What is done to a call. The order is that of the table in FaultPlan.cpp.
enum class FAULT : std::uint8_t
{
    // Nothing of these may change what comes out in the end.
    SHORT_SEND,    ///< a stream takes only a part of what is offered
    SHORT_RECV,    ///< a stream gives only a part of what is there
    SEND_BLOCKS,   ///< nothing can be sent at once, though it could
    RECV_BLOCKS,   ///< nothing has come, though it has
    ACCEPT_BLOCKS, ///< no descriptor or memory for a connection at this moment: it stays where it waits
    CONNECT_LASTS, ///< a connection that is made already is said to be in progress
    WAIT_LATE,     ///< a wait for a socket comes back some milliseconds late
    WAIT_SPURIOUS, ///< a wait for a socket ends at once as if there were something
    SLEEP_LONG,    ///< a pause is some milliseconds longer
    CALL_LATE,     ///< the thread is put aside before a call
    WALL_SHIFTED,  ///< the calendar clock is up to 20 ms off, from here on

    // These make a call fail, or a clock leap. On threads of the libraries, so that the peers and the checks of a test
    // go on; elsewhere too where a test says so.
    SOCKETS_FAIL, ///< the system's sockets cannot be started
    OPEN_FAILS,   ///< no descriptor for a socket
    BIND_FAILS,   ///< the address cannot be had
    LISTEN_FAILS,
    CONNECT_FAILS, ///< refused, or any other failure
    ACCEPT_FAILS,  ///< the listener is unusable
    WAIT_FAILS,    ///< of a socket that does not listen
    SEND_FAILS,    ///< reset, or any other failure
    RECV_FAILS,    ///< reset, ended by the peer, or any other failure
    ADDRESS_FAILS, ///< the address of an end is not known
    BUFFER_FAILS,  ///< sizes of the system's buffers are not told or cannot be set
    LOOKUP_FAILS,  ///< a host name, or the settings that name the DNS servers
    FILE_OPEN_FAILS,
    FILE_READ_FAILS, ///< read, move, ask for the size
    DISK_FULL,       ///< a write takes a part and fails; a file cannot be extended
    FLUSH_FAILS,
    REPLACE_FAILS, ///< or removing a file
    TIME_FAILS,    ///< a time cannot be broken into local time
    NO_THREAD,
    NO_MEMORY, ///< for LARGE_BLOCK bytes or more
    WALL_LEAP, ///< the calendar clock leaps by up to two days, from here on
    TICK_LEAP, ///< the tick leaps forward by up to 25 days, from here on
    COUNT
};

/// Allocations below this size never fail: no program of this size goes on after that, nor is it expected to. Receive
/// and send buffers, sessions, sockets and pieces of transfers lie above.
inline constexpr std::size_t LARGE_BLOCK = 256;

/// The plan in force. One per process.
///
/// For each kind of fault there is one stream of numbers that follows from the seed: the n-th call that asks for a kind
/// gets the same answer in every run. Between threads the order of the calls is the system's; on one thread a run is
/// the same each time.
///
/// Threads: any; sStart and sStop while no call of the libraries runs that is to be judged.
class FaultPlan
{
public:
    enum class KIND : std::uint8_t
    {
        NONE,
        GENTLE, ///< only what may not change any outcome
        HARSH   ///< all of it
    };

    /// Puts a plan into force, its streams at their beginning. The tick starts up to a third of a second before 2^32.
    static void sStart(KIND kind, std::uint64_t seed);
    /// Ends it: calls pass again as they are. Clocks keep what they have been moved by, for they cannot go back unseen;
    /// sRestoreClocks sets them right when nothing runs.
    static void sStop();
    static void sRestoreClocks();
    /// Lets the tick wrap anew, up to a third of a second from now. Between two tests.
    static void sWrapTickSoon();
    /// Sets the clocks right and does nothing to them until sWrapTickSoon. Between two tests.
    static void sHoldClocks();
    static bool sMayMoveClocks();

    static KIND sGetKind();
    static std::uint64_t sGetSeed();

    /// Whether calls fail on every thread, not on those of the libraries alone.
    static void sSetFailEverywhere(bool everywhere);
    static bool sFailsEverywhere();

    /// The answer of a draw: whether the fault strikes, and what it may use to choose among its forms.
    struct DRAW
    {
        bool strikes = false;
        std::uint64_t random = 0;

        explicit operator bool() const { return strikes; }
        /// 0 to bound - 1.
        [[nodiscard]] std::uint64_t Below(std::uint64_t bound) const { return random % bound; }
    };
    /// The next draw of a kind of fault. No strike when the plan has none of that kind on this thread.
    static DRAW sDraw(FAULT fault);
    /// A fault that was drawn has been done: counts it.
    static void sCount(FAULT fault);
    static std::uint32_t sGetCount(FAULT fault);
    /// "plan harsh, seed 7: 12 faults: short send 3, ..." since sStart.
    static std::string sGetReport();
    static const char* sGetName(FAULT fault);
    static const char* sGetName(KIND kind);

    /// Without a plan too: the libraries' next sends on streams take at most so many bytes each, 0 = would block.
    static void sScriptSends(std::vector<std::size_t> sizes);
    /// Takes the next step of that script. False: none is left.
    static bool sTakeScriptedSend(std::size_t& size);
    /// Without a plan too: of the blocks of smallest bytes or more that the libraries ask for on their threads (on
    /// every thread after sSetFailEverywhere), passing are had, the next is not, and the others are.
    static void sScriptMemory(std::uint32_t passing, std::size_t smallest = LARGE_BLOCK);
    /// Ends that script. True: there has been such a block.
    static bool sEndMemoryScript();
    /// Whether blocks of this size count in it.
    static bool sIsMemoryScripted(std::size_t size);
    /// Counts one. True: it is not to be had.
    static bool sTakeScriptedMemory();

    /// What the clocks are off by, milliseconds.
    static std::uint32_t sGetTickOffset();
    static std::int64_t sGetWallOffset();
    static void sMoveTick(std::uint32_t milliSecs);
    static void sSetWallOffset(std::int64_t milliSecs);
};

} // namespace kqlib::test
