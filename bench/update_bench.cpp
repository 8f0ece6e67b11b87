// Downloads by NetAppUpdate against a bare socket that reads the same bytes into a file on the same disk: how long they
// take, and the processor time of the receiving side.
//
// usage: update_bench [--size MIB] [--rounds N] [--folder DIR]
#include "bench/BareSockets.h"
#include "common/ThreadPool.h"
#include "net/update/NetAppUpdate.h"
#include "platform/Clock.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <pthread.h>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using namespace kqlib;

constexpr std::size_t BLOCK = 65536; // of the server and of the bare reader
constexpr std::uint64_t MIB = 1024 * 1024;
constexpr std::uint32_t LOOK_MS = 1;

struct OPTIONS
{
    std::uint64_t sizeMiB = 256;
    unsigned rounds = 5;
    std::string folder = std::filesystem::temp_directory_path().string();
};

bool SendAll(int socket, const char* data, std::size_t size)
{
    while (size > 0) {
        const ssize_t sent = ::send(socket, data, size, MSG_NOSIGNAL);
        if (sent <= 0)
            return false;
        data += sent;
        size -= static_cast<std::size_t>(sent);
    }
    return true;
}

/// What one download took, in seconds.
struct COST
{
    double elapsed = 0;
    double processor = 0; ///< of every thread but the server's
};

double SecondsOf(clockid_t clock)
{
    timespec now{};
    ::clock_gettime(clock, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

/// Measures from its construction on.
class METER
{
public:
    explicit METER(clockid_t serverClock)
        : m_serverClock(serverClock)
        , m_start{SecondsOf(CLOCK_MONOTONIC), xProcessor()}
    {
    }
    COST GetCost() const { return {SecondsOf(CLOCK_MONOTONIC) - m_start.elapsed, xProcessor() - m_start.processor}; }

private:
    double xProcessor() const { return SecondsOf(CLOCK_PROCESS_CPUTIME_ID) - SecondsOf(m_serverClock); }

    clockid_t m_serverClock;
    COST m_start;
};

/// Answers one request: a version file for "/v", the installer for anything else.
void AnswerOne(int connection, unsigned port, std::uint64_t bodySize)
{
    std::string request;
    char buffer[4096];
    while (request.find("\r\n\r\n") == std::string::npos) {
        const ssize_t got = ::recv(connection, buffer, sizeof buffer, 0);
        if (got <= 0)
            return;
        request.append(buffer, static_cast<std::size_t>(got));
    }
    const bool isVersion = request.rfind("GET /v ", 0) == 0;
    const std::string file = "1\r\nbench\r\n127.0.0.1\r\n" + std::to_string(port) + "\r\n/body\r\n";
    const std::string header =
        "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(isVersion ? file.size() : bodySize) + "\r\n\r\n" +
        (isVersion ? file : "");
    if (!SendAll(connection, header.data(), header.size()) || isVersion)
        return;
    const std::vector<char> block(BLOCK, 'b');
    for (std::uint64_t left = bodySize; left > 0;) {
        const std::size_t size = static_cast<std::size_t>(std::min<std::uint64_t>(left, block.size()));
        if (!SendAll(connection, block.data(), size))
            return;
        left -= size;
    }
}

/// What a bare blocking socket takes. The file is removed afterwards.
COST DownloadBare(unsigned port, clockid_t serverClock, const std::string& folder)
{
    const std::string path = folder + "/update_bench.bare";
    const METER meter(serverClock);
    const int connection = bench::Connect(static_cast<std::uint16_t>(port));
    const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    const std::string request = "GET /body HTTP/1.1\r\n\r\n";
    if (connection < 0 || file < 0 || !SendAll(connection, request.data(), request.size()))
        bench::Die("bare download");
    std::vector<char> block(BLOCK);
    for (;;) {
        const ssize_t got = ::recv(connection, block.data(), block.size(), 0);
        if (got <= 0)
            break;
        if (::write(file, block.data(), static_cast<std::size_t>(got)) != got)
            bench::Die("write");
    }
    ::close(file);
    ::close(connection);
    const COST cost = meter.GetCost();
    std::filesystem::remove(path);
    return cost;
}

/// What the library takes; the check before is not counted. The file is removed afterwards.
COST DownloadByLibrary(unsigned port, clockid_t serverClock, const std::string& folder)
{
    ThreadPool pool;
    NetAppUpdate update(pool, String(folder), 0, "bench", "update_bench");
    const auto wait = [&update] {
        while (update.IsBusy())
            platform::SleepMs(LOOK_MS);
    };
    if (!update.CheckForUpdate("", "127.0.0.1", static_cast<USHORT>(port), "/v"))
        bench::Die("check");
    wait();
    const METER meter(serverClock);
    if (!update.DownloadUpdate())
        bench::Die("no update was found");
    wait();
    const COST cost = meter.GetCost();
    if (update.GetStatus() != NetAppUpdate::ST_DOWNLOADED)
        bench::Die("download");
    std::filesystem::remove(update.GetDownloadedUpdatePath().c_str());
    return cost;
}

/// The most memory that this process ever had, in KiB.
long PeakMemory()
{
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;) {
        long value = 0;
        if (word == "VmHWM:" && status >> value)
            return value;
    }
    return 0;
}

double Median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

/// Writes out what the disk of the folder still owes, so that no download pays for the one before.
void SettleDisk(const std::string& folder)
{
    const int handle = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (handle < 0 || ::syncfs(handle) != 0)
        bench::Die("folder");
    ::close(handle);
}

/// All rounds of one way of downloading.
struct SERIES
{
    std::vector<double> elapsed;
    std::vector<double> processor;

    void Add(const COST& cost)
    {
        elapsed.push_back(cost.elapsed);
        processor.push_back(cost.processor);
    }
    void Print(const char* name, double mib) const
    {
        std::printf("%-13s %8.0f MiB/s, processor %6.3f ms/MiB\n", name, mib / Median(elapsed),
                    Median(processor) * 1000 / mib);
    }
};

/// Bare by library, round by round: what disturbs a round disturbs both.
void PrintRatio(const char* name, const std::vector<double>& bare, const std::vector<double>& library)
{
    std::vector<double> ratios;
    for (std::size_t round = 0; round < bare.size(); ++round)
        ratios.push_back(bare[round] / library[round]);
    const auto [lowest, highest] = std::minmax_element(ratios.begin(), ratios.end());
    std::printf("%-13s %8.2f, from %.2f to %.2f\n", name, Median(ratios), *lowest, *highest);
}

void Run(const OPTIONS& options)
{
    const std::uint64_t size = options.sizeMiB * MIB;
    const int listener = bench::Listen(0);
    const unsigned port = bench::PortOf(listener);
    std::thread server([&] {
        for (int connection = 0; (connection = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC)) >= 0;) {
            AnswerOne(connection, port, size);
            ::close(connection);
        }
    });
    clockid_t serverClock{};
    if (::pthread_getcpuclockid(server.native_handle(), &serverClock) != 0)
        bench::Die("clock of a thread");
    SERIES bare;
    SERIES library;
    const long before = PeakMemory();
    for (unsigned step = 0; step < options.rounds * 2; ++step) { // bare, library, library, bare, and so on
        SettleDisk(options.folder);
        if (step % 4 == 0 || step % 4 == 3)
            bare.Add(DownloadBare(port, serverClock, options.folder));
        else
            library.Add(DownloadByLibrary(port, serverClock, options.folder));
    }
    const double mib = static_cast<double>(options.sizeMiB);
    std::printf("%.0f MiB, medians of %u rounds\n", mib, options.rounds);
    bare.Print("bare socket", mib);
    library.Print("NetAppUpdate", mib);
    PrintRatio("speed ratio", bare.elapsed, library.elapsed);
    PrintRatio("processor", bare.processor, library.processor);
    std::printf("peak memory   %ld KiB, %ld KiB before\n", PeakMemory(), before);
    ::shutdown(listener, SHUT_RDWR);
    server.join();
    ::close(listener);
}

} // namespace

int main(int argc, char** argv)
{
    OPTIONS options;
    CLI::App app("Downloads by NetAppUpdate against a bare socket");
    app.add_option("--size", options.sizeMiB, "MiB of one download (default: 256)")->check(CLI::Range(1, 4095));
    app.add_option("--rounds", options.rounds, "Downloads of each kind (default: 5)")->check(CLI::Range(1, 1000));
    app.add_option("--folder", options.folder, "Where the files go (default: the folder of temporary files)");
    CLI11_PARSE(app, argc, argv);
    if (!NetSocket::sStartSockets())
        bench::Die("sockets");
    Run(options);
    NetSocket::sEndSockets();
    return 0;
}
