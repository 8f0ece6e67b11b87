// Address control: what one evaluation of a rule list costs, and one call of the anti-hammer as it fills.
#include "common/TimedEvent.h"
#include "net/dns/NetDNSCache.h"
#include "net/ipcontrol/NetAntiHammer.h"
#include "net/ipcontrol/NetIPControl.h"
#include "net/ipcontrol/NetIPControlQuery.h"
#include "net/ipcontrol/NetIPTrack.h"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdlib>
#include <malloc.h>
#include <memory>
#include <vector>

using namespace kqlib;

namespace {

constexpr std::int64_t CAP = NetAntiHammer::MAX_ENTRIES;
/// Steps that visit every address in an order that no cache foresees.
constexpr std::uint64_t STEP = 0x9E3779B97F4A7C15ULL;

NetIP Address(std::uint32_t number)
{
    const unsigned char bytes[] = {static_cast<unsigned char>(number >> 24), static_cast<unsigned char>(number >> 16),
                                   static_cast<unsigned char>(number >> 8), static_cast<unsigned char>(number)};
    NetIP ip;
    ip.Set(NetIP::IP_4, bytes);
    return ip;
}

/// Hands out the numbers below a bound, all over the place.
class SCATTER
{
public:
    explicit SCATTER(std::int64_t bound)
        : m_bound(static_cast<std::uint64_t>(bound))
    {
    }
    std::uint32_t Next()
    {
        m_state += STEP;
        return static_cast<std::uint32_t>(((m_state >> 32) * m_bound) >> 32);
    }

private:
    std::uint64_t m_bound;
    std::uint64_t m_state = 1;
};

/// Addresses, masks and ranges in turn, none of which matches a peer of 192.0.2.0/24: the whole list is walked.
NetIPControl AddressRules(std::int64_t count)
{
    NetIPControl rules;
    for (std::int64_t i = 0; i < count; ++i) {
        const std::uint32_t number = 0x0A000000U + static_cast<std::uint32_t>(i) * 256;
        NetIPControlEntry rule;
        rule.SetAllow(i % 2 == 0);
        rule.SetType(static_cast<NetIPControlEntry::ENTRYTYPE>(i % 3));
        rule.SetIP(Address(number));
        rule.SetIPHigh(i % 3 == 1 ? Address(0xFFFFFF00U) : Address(number + 99));
        rules.Add(rule);
    }
    return rules;
}

void RuleEvaluation(benchmark::State& state)
{
    NetDNSCache cache;
    const NetIPControlQuery query(cache);
    const NetIPControl rules = AddressRules(state.range(0));
    const NetIP local("192.0.2.1");
    const NetIP peer("192.0.2.77");
    for (auto unused : state) {
        (void)unused;
        benchmark::DoNotOptimize(query.IsAllowed(rules, local, peer));
    }
}

/// The same for clients from all over the addresses of the rules, nearly half of which a rule matches.
void RuleEvaluationScattered(benchmark::State& state)
{
    NetDNSCache cache;
    const NetIPControlQuery query(cache);
    const NetIPControl rules = AddressRules(state.range(0));
    const NetIP local("192.0.2.1");
    SCATTER numbers(state.range(0) * 256);
    for (auto unused : state) {
        (void)unused;
        benchmark::DoNotOptimize(query.IsAllowed(rules, local, Address(0x0A000000U + numbers.Next())));
    }
}

/// The decisions of a list from its last change until it has an index, which the last of them makes.
void RuleIndex(benchmark::State& state)
{
    NetDNSCache cache;
    const NetIPControlQuery query(cache);
    NetIPControl rules = AddressRules(state.range(0));
    const NetIP local("192.0.2.1");
    const NetIP peer("192.0.2.77");
    for (auto unused : state) {
        (void)unused;
        rules.MoveTop(0); // changes nothing but what the list knows of itself
        for (int decision = 0; decision <= 64; ++decision)
            benchmark::DoNotOptimize(query.IsAllowed(rules, local, peer));
    }
}

/// An anti-hammer that holds so many addresses, every other one blocked; kept while the number stays the same.
NetAntiHammer& FilledHammer(std::int64_t count)
{
    static NetDNSCache cache;
    static std::unique_ptr<NetAntiHammer> hammer;
    static std::int64_t held = -1;
    if (held == count)
        return *hammer;
    hammer.reset();
    hammer = std::make_unique<NetAntiHammer>(cache);
    held = count;
    for (const ULONG maxAttempts : {1UL, 1000000000UL}) {
        hammer->SetData(maxAttempts, 4000000, 4000000, false, NetIPControl());
        for (std::int64_t i = maxAttempts == 1 ? 0 : 1; i < count; i += 2)
            hammer->AddFailedAttempt(Address(static_cast<std::uint32_t>(i)), NetIP());
    }
    return *hammer;
}

/// The same client again and again, as an attacker that has been blocked comes.
void CheckSame(benchmark::State& state)
{
    NetAntiHammer& hammer = FilledHammer(state.range(0));
    const NetIP peer = Address(0);
    for (auto unused : state) {
        (void)unused;
        benchmark::DoNotOptimize(hammer.IsBlocked(peer, NetIP()));
    }
}

/// Clients that are not held, a new one each time.
void CheckStranger(benchmark::State& state)
{
    NetAntiHammer& hammer = FilledHammer(state.range(0));
    SCATTER numbers(CAP);
    for (auto unused : state) {
        (void)unused;
        benchmark::DoNotOptimize(hammer.IsBlocked(Address(0x80000000U + numbers.Next()), NetIP()));
    }
}

/// Clients that are held, another one each time.
void CheckHeld(benchmark::State& state)
{
    NetAntiHammer& hammer = FilledHammer(state.range(0));
    SCATTER numbers(state.range(0) > 0 ? state.range(0) : 1);
    for (auto unused : state) {
        (void)unused;
        benchmark::DoNotOptimize(hammer.IsBlocked(Address(numbers.Next()), NetIP()));
    }
}

/// A failed attempt of a client that is held, another one each time.
void Failure(benchmark::State& state)
{
    NetAntiHammer& hammer = FilledHammer(state.range(0));
    SCATTER numbers(state.range(0) > 0 ? state.range(0) : 1);
    for (auto unused : state) {
        (void)unused;
        benchmark::DoNotOptimize(hammer.AddFailedAttempt(Address(numbers.Next()), NetIP()));
    }
}

/// The first failures of as many addresses as the cap allows, and what each of them takes from the heap.
void FillToTheCap(benchmark::State& state)
{
    NetDNSCache cache;
    double bytes = 0;
    for (auto unused : state) {
        (void)unused;
        const struct mallinfo2 before = mallinfo2();
        NetAntiHammer hammer(cache);
        hammer.SetData(5, 4000000, 4000000, false, NetIPControl());
        for (std::int64_t i = 0; i < CAP; ++i)
            hammer.AddFailedAttempt(Address(static_cast<std::uint32_t>(i)), NetIP());
        const struct mallinfo2 after = mallinfo2();
        bytes = static_cast<double>(after.uordblks + after.hblkhd - before.uordblks - before.hblkhd);
    }
    state.counters["bytes_per_entry"] = bytes / static_cast<double>(CAP);
    state.counters["ns_per_entry"] = benchmark::Counter(
        static_cast<double>(CAP) * 1e-9, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void TrackAddRemove(benchmark::State& state)
{
    NetIPTrack track;
    for (std::int64_t i = 0; i < state.range(0); ++i)
        track.Add(Address(static_cast<std::uint32_t>(i)));
    SCATTER numbers(state.range(0));
    for (auto unused : state) {
        (void)unused;
        const NetIP peer = Address(numbers.Next());
        track.Add(peer);
        benchmark::DoNotOptimize(track.GetCount(peer));
        track.Remove(peer);
    }
}

BENCHMARK(RuleEvaluation)->Arg(10)->Arg(100)->Arg(1000)->Arg(100000);
BENCHMARK(RuleEvaluationScattered)->Arg(10)->Arg(100)->Arg(1000)->Arg(100000);
BENCHMARK(RuleIndex)->Arg(1000)->Arg(100000)->Unit(benchmark::kMillisecond);
BENCHMARK(FillToTheCap)->Iterations(2)->Unit(benchmark::kMillisecond);
BENCHMARK(TrackAddRemove)->Arg(200)->Arg(10000);

} // namespace

int main(int argc, char** argv)
{
    // Level by level, so that the anti-hammer is filled three times only.
    for (const std::int64_t held : {std::int64_t{0}, std::int64_t{1000}, CAP}) {
        benchmark::RegisterBenchmark("Hammer/CheckSame", CheckSame)->Arg(held);
        benchmark::RegisterBenchmark("Hammer/CheckStranger", CheckStranger)->Arg(held);
        if (held > 0) {
            benchmark::RegisterBenchmark("Hammer/CheckHeld", CheckHeld)->Arg(held);
            benchmark::RegisterBenchmark("Hammer/Failure", Failure)->Arg(held);
        }
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
