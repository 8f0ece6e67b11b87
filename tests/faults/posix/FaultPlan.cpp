#include "tests/faults/posix/FaultPlan.h"

#include "tests/faults/posix/Interposition.h"

#include <array>
#include <atomic>
#include <deque>
#include <mutex>

namespace kqlib::test {

namespace {

constexpr std::size_t FAULT_COUNT = static_cast<std::size_t>(FAULT::COUNT);
constexpr std::uint32_t WRAP_WITHIN_MS = 333;

/// How often a fault strikes: once in so many draws on average, 0 = never.
struct RATE
{
    const char* name;
    std::uint32_t gentle;
    std::uint32_t harsh;
};

constexpr std::array<RATE, FAULT_COUNT> RATES = {{
    {"short send", 6, 6},           {"short receive", 6, 6},
    {"send blocks", 8, 8},          {"receive blocks", 8, 8},
    {"accept blocks", 6, 6},        {"connect lasts", 2, 2},
    {"wait late", 24, 24},          {"wait spurious", 16, 16},
    {"sleep long", 24, 24},         {"call late", 48, 48},
    {"wall clock shifted", 32, 32}, {"sockets cannot be started", 0, 60},
    {"open fails", 0, 25},          {"bind fails", 0, 30},
    {"listen fails", 0, 30},        {"connect fails", 0, 25},
    {"accept fails", 0, 200},       {"wait fails", 0, 300},
    {"send fails", 0, 100},         {"receive fails", 0, 150},
    {"address not known", 0, 25},   {"buffer size not known", 0, 10},
    {"look-up fails", 0, 4},        {"file open fails", 0, 8},
    {"file read fails", 0, 20},     {"disk full", 0, 10},
    {"flush fails", 0, 10},         {"replace fails", 0, 10},
    {"time not told", 0, 50},       {"no thread", 0, 8},
    {"no memory", 0, 60},           {"wall clock leaps", 0, 300},
    {"tick leaps", 0, 3000},
}};

struct STATE
{
    std::atomic<FaultPlan::KIND> kind{FaultPlan::KIND::NONE};
    std::atomic<std::uint64_t> seed{0};
    std::array<std::atomic<std::uint32_t>, FAULT_COUNT> drawn{};
    std::array<std::atomic<std::uint32_t>, FAULT_COUNT> struck{};
    std::atomic<std::uint32_t> tickOffset{0};
    std::atomic<std::uint32_t> wraps{0};
    std::atomic<std::int64_t> wallOffset{0};
    std::atomic<bool> holdsClocks{false};
    std::atomic<bool> failsEverywhere{false};
    std::atomic<bool> scripted{false};
    std::atomic<bool> memoryScripted{false};
    std::atomic<std::int64_t> blocksToGo{0}; // below zero: the one has been met
    std::atomic<std::size_t> smallestBlock{LARGE_BLOCK};
};

/// Constant at first and never destroyed: calls come before and after every static object lives.
constinit STATE state;

std::mutex scriptMutex;
std::deque<std::size_t> script; // guarded by scriptMutex

std::size_t ToIndex(FAULT fault)
{
    return static_cast<std::size_t>(fault);
}

/// The finishing step of the generator splitmix64, which mixes every bit of its input into every bit of the result.
std::uint64_t Mix(std::uint64_t value)
{
    value += 0x9E3779B97F4A7C15ULL;
    value = (value ^ (value >> 30)) * 0xBF58476D1CE4E5B9ULL;
    value = (value ^ (value >> 27)) * 0x94D049BB133111EBULL;
    return value ^ (value >> 31);
}

/// Number n of a stream.
std::uint64_t Number(std::uint64_t stream, std::uint64_t n)
{
    return Mix(Mix(Mix(state.seed.load()) ^ stream) ^ n);
}

} // namespace

void FaultPlan::sStart(KIND kind, std::uint64_t seed)
{
    state.seed = seed;
    for (std::size_t index = 0; index < FAULT_COUNT; ++index) {
        state.drawn[index] = 0;
        state.struck[index] = 0;
    }
    state.wraps = 0;
    state.kind = kind;
    if (kind != KIND::NONE)
        sWrapTickSoon();
}

void FaultPlan::sStop()
{
    state.kind = KIND::NONE;
}

void FaultPlan::sRestoreClocks()
{
    state.tickOffset = 0;
    state.wallOffset = 0;
}

void FaultPlan::sHoldClocks()
{
    sRestoreClocks();
    state.holdsClocks = true;
}

bool FaultPlan::sMayMoveClocks()
{
    return !state.holdsClocks.load(std::memory_order_relaxed);
}

void FaultPlan::sWrapTickSoon()
{
    state.holdsClocks = false;
    const std::uint64_t random = Number(FAULT_COUNT, state.wraps.fetch_add(1));
    state.tickOffset = 0U - GetRealTick() - static_cast<std::uint32_t>(random % WRAP_WITHIN_MS);
}

FaultPlan::KIND FaultPlan::sGetKind()
{
    return state.kind.load(std::memory_order_relaxed);
}

std::uint64_t FaultPlan::sGetSeed()
{
    return state.seed;
}

void FaultPlan::sSetFailEverywhere(bool everywhere)
{
    state.failsEverywhere = everywhere;
}

bool FaultPlan::sFailsEverywhere()
{
    return state.failsEverywhere.load(std::memory_order_relaxed);
}

FaultPlan::DRAW FaultPlan::sDraw(FAULT fault)
{
    const KIND kind = sGetKind();
    if (kind == KIND::NONE)
        return {};
    if (fault >= FAULT::SOCKETS_FAIL && !IsLibraryThread() && !sFailsEverywhere())
        return {};
    const std::size_t index = ToIndex(fault);
    const std::uint32_t rate = kind == KIND::GENTLE ? RATES[index].gentle : RATES[index].harsh;
    if (rate == 0)
        return {};
    const std::uint64_t number = Number(index, state.drawn[index].fetch_add(1, std::memory_order_relaxed));
    return {number % rate == 0, number / rate};
}

void FaultPlan::sCount(FAULT fault)
{
    state.struck[ToIndex(fault)].fetch_add(1, std::memory_order_relaxed);
}

std::uint32_t FaultPlan::sGetCount(FAULT fault)
{
    return state.struck[ToIndex(fault)];
}

std::string FaultPlan::sGetReport()
{
    std::string list;
    std::uint64_t total = 0;
    for (std::size_t index = 0; index < FAULT_COUNT; ++index) {
        const std::uint32_t count = state.struck[index];
        total += count;
        if (count != 0)
            list += std::string(list.empty() ? ": " : ", ") + RATES[index].name + " " + std::to_string(count);
    }
    return std::string("plan ") + sGetName(sGetKind()) + ", seed " + std::to_string(sGetSeed()) + ": " +
           std::to_string(total) + " faults" + list;
}

const char* FaultPlan::sGetName(FAULT fault)
{
    return RATES[ToIndex(fault)].name;
}

const char* FaultPlan::sGetName(KIND kind)
{
    switch (kind) {
    case KIND::GENTLE:
        return "gentle";
    case KIND::HARSH:
        return "harsh";
    default:
        return "none";
    }
}

void FaultPlan::sScriptSends(std::vector<std::size_t> sizes)
{
    const std::lock_guard lock(scriptMutex);
    script.assign(sizes.begin(), sizes.end());
    state.scripted = !script.empty();
}

bool FaultPlan::sTakeScriptedSend(std::size_t& size)
{
    if (!state.scripted.load(std::memory_order_relaxed))
        return false;
    const std::lock_guard lock(scriptMutex);
    if (script.empty())
        return false;
    size = script.front();
    script.pop_front();
    state.scripted = !script.empty();
    return true;
}

void FaultPlan::sScriptMemory(std::uint32_t passing, std::size_t smallest)
{
    state.blocksToGo = passing;
    state.smallestBlock = smallest;
    state.memoryScripted = true;
}

bool FaultPlan::sEndMemoryScript()
{
    state.memoryScripted = false;
    return state.blocksToGo < 0;
}

bool FaultPlan::sIsMemoryScripted(std::size_t size)
{
    return state.memoryScripted.load(std::memory_order_relaxed) && size >= state.smallestBlock;
}

bool FaultPlan::sTakeScriptedMemory()
{
    return state.memoryScripted && state.blocksToGo-- == 0;
}

std::uint32_t FaultPlan::sGetTickOffset()
{
    return state.tickOffset.load(std::memory_order_relaxed);
}

std::int64_t FaultPlan::sGetWallOffset()
{
    return state.wallOffset.load(std::memory_order_relaxed);
}

void FaultPlan::sMoveTick(std::uint32_t milliSecs)
{
    state.tickOffset.fetch_add(milliSecs);
}

void FaultPlan::sSetWallOffset(std::int64_t milliSecs)
{
    state.wallOffset = milliSecs;
}

} // namespace kqlib::test
