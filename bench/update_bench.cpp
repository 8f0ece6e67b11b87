// Downloads by NetAppUpdate against a bare socket that reads the same bytes into a file on the same disk.
//
// usage: update_bench [--size MIB] [--rounds N] [--folder DIR]
#include "bench/BareSockets.h"
#include "common/ThreadPool.h"
#include "net/update/NetAppUpdate.h"
#include "platform/Clock.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace kqlib;
using CLOCK = std::chrono::steady_clock;

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

/// Seconds that a bare blocking socket takes.
double DownloadBare(unsigned port, const std::string& path)
{
    const auto start = CLOCK::now();
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
    return std::chrono::duration<double>(CLOCK::now() - start).count();
}

/// Seconds that the library takes; the check before is not counted.
double DownloadByLibrary(unsigned port, const std::string& folder)
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
    const auto start = CLOCK::now();
    if (!update.DownloadUpdate())
        bench::Die("no update was found");
    wait();
    const double seconds = std::chrono::duration<double>(CLOCK::now() - start).count();
    if (update.GetStatus() != NetAppUpdate::ST_DOWNLOADED)
        bench::Die("download");
    std::filesystem::remove(update.GetDownloadedUpdatePath().c_str());
    return seconds;
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
    const std::string barePath = options.folder + "/update_bench.bare";
    std::vector<double> bare;
    std::vector<double> library;
    const long before = PeakMemory();
    for (unsigned round = 0; round < options.rounds; ++round) { // in turn: what disturbs one disturbs the other
        bare.push_back(DownloadBare(port, barePath));
        std::filesystem::remove(barePath);
        library.push_back(DownloadByLibrary(port, options.folder));
    }
    const double mib = static_cast<double>(options.sizeMiB);
    std::printf("%.0f MiB, median of %u rounds\n", mib, options.rounds);
    std::printf("bare socket   %8.0f MiB/s\n", mib / Median(bare));
    std::printf("NetAppUpdate  %8.0f MiB/s, ratio %.2f\n", mib / Median(library), Median(bare) / Median(library));
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
