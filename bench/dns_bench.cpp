// Look-ups per second: answers from the cache as it fills and as threads share it; answers from a server on loopback
// beside the same datagrams sent by a bare loop. The server needs port 53: run as root, or `unshare -rn` with loopback
// up; without it that part says so and is left out.
#include "common/TimedEvent.h"
#include "net/dns/NetDNS.h"
#include "net/dns/NetDNSCache.h"
#include "net/dns/NetDNSOptions.h"
#include "platform/Sockets.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <thread>
#include <vector>

using namespace kqlib;

namespace {

constexpr const char* SERVER_ADDRESS = "127.53.53.53";
constexpr const char* NAME = "host.example";
/// From one name to the next, all over the cache; has no factor in common with the numbers of names held.
constexpr std::int64_t STEP = 6181;

platform::Endpoint ServerEndpoint()
{
    platform::Endpoint endpoint;
    endpoint.port = 53;
    const unsigned char bytes[] = {127, 53, 53, 53};
    std::copy(std::begin(bytes), std::end(bytes), endpoint.bytes);
    return endpoint;
}

/// Answers every query with one address, on a thread of its own.
class SERVER
{
public:
    SERVER()
        : m_handle(platform::OpenSocket(false, platform::Family::IP4))
    {
        m_running = platform::BindSocket(m_handle, ServerEndpoint(), false);
        if (m_running)
            m_thread = std::thread([this] { xServe(); });
    }
    ~SERVER()
    {
        m_ending = true;
        if (m_thread.joinable())
            m_thread.join();
        platform::CloseSocket(m_handle);
    }
    SERVER(const SERVER&) = delete;
    SERVER& operator=(const SERVER&) = delete;

    bool IsRunning() const { return m_running; }

private:
    void xServe()
    {
        const unsigned char answer[] = {0xC0, 12, 0, 1, 0, 1, 0, 0, 0x0E, 0x10, 0, 4, 10, 0, 0, 1};
        unsigned char buffer[512];
        while (!m_ending) {
            platform::Endpoint from;
            std::size_t size = sizeof(buffer) - sizeof(answer);
            if (platform::WaitSocket(m_handle, true, 50) != platform::WaitResult::READY ||
                platform::RecvSocketFrom(m_handle, buffer, size, from) != platform::IoResult::DONE || size < 12)
                continue;
            size =
                static_cast<std::size_t>(std::find(buffer + 12, buffer + size, 0) - buffer) + 5; // the question's end
            buffer[2] |= 0x80;                                                                   // a response,
            buffer[7] = 1;                                                                       // with one answer
            buffer[11] = 0; // and without what may have stood behind the question
            std::copy(std::begin(answer), std::end(answer), buffer + size);
            size += sizeof(answer);
            platform::SendSocketTo(m_handle, buffer, size, from);
        }
    }

    platform::SocketHandle m_handle;
    bool m_running = false;
    std::atomic<bool> m_ending{false};
    std::thread m_thread;
};

/// The query for NAME as the resolver sends it.
std::vector<unsigned char> Query()
{
    constexpr unsigned char QUERY[] = {0xFF, 0xFF, 1, 0,   0,   1,   0,   0,   0,   0,   0, 0, 4, 'h', 'o',
                                       's',  't',  7, 'e', 'x', 'a', 'm', 'p', 'l', 'e', 0, 0, 1, 0,   1};
    return {std::begin(QUERY), std::end(QUERY)};
}

/// One query and its answer. False when one of the two was lost.
bool Exchange(platform::SocketHandle handle, const std::vector<unsigned char>& query)
{
    std::size_t size = query.size();
    unsigned char answer[1024];
    std::size_t room = sizeof(answer);
    return platform::SendSocket(handle, query.data(), size) == platform::IoResult::DONE &&
           platform::WaitSocket(handle, true, 5000) == platform::WaitResult::READY &&
           platform::RecvSocket(handle, answer, room) == platform::IoResult::DONE && room > query.size();
}

platform::SocketHandle OpenClient()
{
    const platform::SocketHandle handle = platform::OpenSocket(false, platform::Family::IP4);
    platform::ConnectSocket(handle, ServerEndpoint());
    return handle;
}

/// number: below 90,000. Names of one length, so that making and hashing one costs the same whatever their number.
String NameOf(std::int64_t number)
{
    return String("host" + std::to_string(10000 + number) + ".example");
}

/// Look-ups through a resolver over a cache that holds as many names as the argument says.
void CachedLookup(benchmark::State& state)
{
    static std::unique_ptr<NetDNSCache> cache;
    if (state.thread_index() == 0) {
        cache = std::make_unique<NetDNSCache>();
        VectorPtr<String> records;
        records.Give(new String("10.0.0.1"));
        for (std::int64_t i = 0; i < state.range(0); ++i)
            cache->CacheALookup(NameOf(i), TimedEvent::sGetNow() + 3600000, records);
    }
    std::int64_t number = state.thread_index();
    std::unique_ptr<NetDNS> dns;
    Messages msgs;
    for (auto unused : state) {
        (void)unused;
        if (!dns)
            dns = std::make_unique<NetDNS>(NetIP::LOOKUP_ANY, *cache);
        number = (number + STEP) % state.range(0);
        if (!dns->DoALookup(NameOf(number), msgs)) {
            state.SkipWithError("an answer is missing");
            break;
        }
    }
    state.SetItemsProcessed(state.iterations());
}

/// As CachedLookup, by a resolver with options, whose answers the server must have given: the names are asked for
/// first.
void CheckedCachedLookup(benchmark::State& state)
{
    NetDNSCache cache;
    NetDNS dns(NetIP::LOOKUP_ANY, cache);
    dns.SetOptions(NetDNSOptions());
    Messages msgs;
    for (std::int64_t i = 0; i < state.range(0); ++i)
        dns.DoALookup(NameOf(i), SERVER_ADDRESS, msgs);
    std::int64_t number = 0;
    for (auto unused : state) {
        (void)unused;
        number = (number + STEP) % state.range(0);
        if (!dns.DoALookup(NameOf(number), msgs)) {
            state.SkipWithError("an answer is missing");
            break;
        }
    }
    state.SetItemsProcessed(state.iterations());
}

/// checked: by a resolver with options.
void UncachedLookup(benchmark::State& state, bool checked)
{
    NetDNS dns(NetIP::LOOKUP_ANY);
    if (checked)
        dns.SetOptions(NetDNSOptions());
    Messages msgs;
    for (auto unused : state) {
        (void)unused;
        if (!dns.DoALookup(NAME, SERVER_ADDRESS, msgs)) {
            state.SkipWithError("an answer is missing");
            break;
        }
    }
    state.SetItemsProcessed(state.iterations());
}

/// The same datagrams; a socket for each query, as the resolver has it.
void BareSocketEach(benchmark::State& state)
{
    const std::vector<unsigned char> query = Query();
    for (auto unused : state) {
        (void)unused;
        const platform::SocketHandle handle = OpenClient();
        const bool answered = Exchange(handle, query);
        platform::CloseSocket(handle);
        if (!answered) {
            state.SkipWithError("an answer is missing");
            break;
        }
    }
    state.SetItemsProcessed(state.iterations());
}

/// The same datagrams over one socket.
void BareSocketKept(benchmark::State& state)
{
    const std::vector<unsigned char> query = Query();
    const platform::SocketHandle handle = OpenClient();
    for (auto unused : state) {
        (void)unused;
        if (!Exchange(handle, query)) {
            state.SkipWithError("an answer is missing");
            break;
        }
    }
    platform::CloseSocket(handle);
    state.SetItemsProcessed(state.iterations());
}

BENCHMARK(CachedLookup)->Arg(10)->Arg(1000)->Arg(10000)->Threads(1)->Threads(8)->UseRealTime();

} // namespace

int main(int argc, char** argv)
{
    platform::StartSockets();
    SERVER server;
    if (server.IsRunning()) {
        benchmark::RegisterBenchmark("CheckedCachedLookup", CheckedCachedLookup)->Arg(10)->Arg(1000)->Arg(10000);
        benchmark::RegisterBenchmark("UncachedLookup", UncachedLookup, false)->UseRealTime();
        benchmark::RegisterBenchmark("CheckedLookup", UncachedLookup, true)->UseRealTime();
        benchmark::RegisterBenchmark("BareSocketEach", BareSocketEach)->UseRealTime();
        benchmark::RegisterBenchmark("BareSocketKept", BareSocketKept)->UseRealTime();
    } else {
        std::fprintf(stderr, "port 53 of %s cannot be had: no look-ups over the network\n", SERVER_ADDRESS);
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    platform::EndSockets();
    return 0;
}
