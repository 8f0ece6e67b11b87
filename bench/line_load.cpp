// Compares bench/line_server (on the library) with bench/bare_line_server (bare blocking sockets, a thread per
// connection) in one run on loopback: both are started here, every workload runs against them in turn, several times,
// and the medians and their ratio are printed, of what was done in a second and of the processor time that each unit of
// it cost the server. Linux only.
//
// usage: line_load [--rounds N] [--seconds S] [--only WORKLOAD] [--idle-seconds S] [--bin DIR]
//   --rounds, --seconds: measurements of each workload and server, and how long each takes (15 of 0.5 s)
//   --only: the workloads whose name contains this, or "idle"
//   --idle-seconds: how long idle sessions are watched (5)
//   --bin: where the two servers lie (default: beside this program)
// The workloads over TLS have a certificate of 2048 bits made by the openssl program.

#include "bench/Connection.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <ctime>
#include <fstream>
#include <functional>
#include <string>
#include <sys/epoll.h>
#include <sys/wait.h>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

constexpr double WARM_UP_SECONDS = 0.2;

double Since(Clock::time_point start)
{
    return std::chrono::duration<double>(Clock::now() - start).count();
}

/// A server started as a child process; it prints "listening on 127.0.0.1:PORT" first.
class Server
{
public:
    /// secured: it speaks TLS from the first byte.
    Server(const std::string& path, std::vector<std::string> arguments, bool secured = false)
        : m_secured(secured)
    {
        int ends[2];
        if (::pipe(ends) != 0)
            bench::Die("pipe");
        m_pid = ::fork();
        if (m_pid == 0) {
            ::dup2(ends[1], 1);
            ::close(ends[0]);
            ::close(ends[1]);
            std::vector<char*> argv{const_cast<char*>(path.c_str())};
            for (std::string& argument : arguments)
                argv.push_back(argument.data());
            argv.push_back(nullptr);
            ::execv(path.c_str(), argv.data());
            bench::Die(path.c_str());
        }
        ::close(ends[1]);
        std::string line;
        for (char character = 0; ::read(ends[0], &character, 1) == 1 && character != '\n';)
            line += character;
        ::close(ends[0]);
        const auto colon = line.rfind(':');
        if (colon == std::string::npos)
            bench::Die("the server printed no port");
        m_port = static_cast<std::uint16_t>(std::stoul(line.substr(colon + 1)));
    }
    ~Server()
    {
        ::kill(m_pid, SIGTERM);
        ::waitpid(m_pid, nullptr, 0);
    }
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    std::uint16_t Port() const { return m_port; }
    bool IsSecured() const { return m_secured; }

    /// Processor seconds used so far by all its threads, user and system.
    double CpuSeconds() const
    {
        clockid_t clock;
        timespec used{};
        if (::clock_getcpuclockid(m_pid, &clock) != 0 || ::clock_gettime(clock, &used) != 0)
            bench::Die("clock_getcpuclockid");
        return static_cast<double>(used.tv_sec) + static_cast<double>(used.tv_nsec) * 1e-9;
    }
    double ResidentMiB() const
    {
        std::ifstream status("/proc/" + std::to_string(m_pid) + "/status");
        for (std::string line; std::getline(status, line);)
            if (line.starts_with("VmRSS:"))
                return std::stod(line.substr(6)) / 1024.0;
        return 0;
    }

private:
    pid_t m_pid = 0;
    std::uint16_t m_port = 0;
    bool m_secured;
};

/// What one measurement found.
struct Figures
{
    double rate;      ///< units per second
    double cpuMicros; ///< processor time of the server for one unit, in microseconds; other work disturbs it less
};

/// Measures from construction or Restart on.
class Meter
{
public:
    explicit Meter(const Server& server)
        : m_server(server)
    {
        Restart();
    }
    void Restart()
    {
        m_start = Clock::now();
        m_cpu = m_server.CpuSeconds();
    }
    double Passed() const { return Since(m_start); }
    Figures Finish(double units) const { return {units / Passed(), (m_server.CpuSeconds() - m_cpu) * 1e6 / units}; }

private:
    const Server& m_server;
    Clock::time_point m_start;
    double m_cpu = 0;
};

void SendText(bench::Connection& connection, const std::string& text)
{
    if (!connection.SendAll(text.data(), text.size()))
        bench::Die("send");
}

/// Receives exactly size bytes and forgets them.
void Swallow(bench::Connection& connection, unsigned long long size)
{
    static thread_local std::vector<char> buffer(1 << 18);
    while (size > 0) {
        const auto room = std::min<unsigned long long>(size, buffer.size());
        const ssize_t got = connection.Recv(buffer.data(), static_cast<std::size_t>(room));
        if (got <= 0)
            bench::Die("recv");
        size -= static_cast<unsigned long long>(got);
    }
}

bench::Connection MustConnect(const Server& server, std::uint32_t host)
{
    bench::Connection connection(bench::Connect(server.Port(), host));
    if (!connection.IsOpen() || (server.IsSecured() && !connection.Connect()))
        bench::Die("connect");
    return connection;
}

/// Commands per second: count connections in a closed loop, one PING outstanding on each, driven by one thread.
Figures Commands(const Server& server, unsigned count, double seconds)
{
    std::vector<bench::Connection> connections;
    const int poll = ::epoll_create1(EPOLL_CLOEXEC);
    for (unsigned index = 0; index < count; ++index) {
        connections.push_back(MustConnect(server, 2 + index % 8));
        epoll_event event{};
        event.events = EPOLLIN;
        event.data.u32 = index;
        ::epoll_ctl(poll, EPOLL_CTL_ADD, connections.back().Socket(), &event);
        // An answer before the next one connects: the library's listener has room for five that wait, and whoever finds
        // none tries again after a second.
        SendText(connections.back(), "PING\r\n");
        Swallow(connections.back(), 6);
        SendText(connections.back(), "PING\r\n");
    }
    unsigned long long answers = 0;
    std::vector<epoll_event> events(256);
    char buffer[64];
    // Some warming up first: the server's threads exist and have run.
    Meter meter(server);
    for (bool warm = false;;) {
        const int ready = ::epoll_wait(poll, events.data(), 256, 1000);
        for (int index = 0; index < ready; ++index) {
            bench::Connection& connection = connections[events[static_cast<std::size_t>(index)].data.u32];
            if (connection.Recv(buffer, sizeof buffer) <= 0)
                bench::Die("recv");
            ++answers;
            SendText(connection, "PING\r\n");
        }
        if (!warm && meter.Passed() > WARM_UP_SECONDS) {
            warm = true;
            answers = 0;
            meter.Restart();
        } else if (warm && meter.Passed() >= seconds) {
            break;
        }
    }
    const Figures figures = meter.Finish(static_cast<double>(answers));
    ::close(poll);
    return figures;
}

/// Commands per second on one connection with depth commands sent at once.
Figures Pipelined(const Server& server, unsigned depth, double seconds)
{
    bench::Connection connection = MustConnect(server, 2);
    std::string batch;
    for (unsigned index = 0; index < depth; ++index)
        batch += "PING\r\n";
    unsigned long long answers = 0;
    const Meter meter(server);
    while (meter.Passed() < seconds) {
        SendText(connection, batch);
        Swallow(connection, 6ULL * depth);
        answers += depth;
    }
    return meter.Finish(static_cast<double>(answers));
}

/// MiB per second over streams connections, in transfers of mib MiB.
Figures Bulk(const Server& server, unsigned streams, unsigned mib, double seconds)
{
    const unsigned long long size = 1ULL * mib << 20;
    std::atomic<unsigned> transfers{0};
    std::vector<std::thread> threads;
    const Meter meter(server);
    for (unsigned index = 0; index < streams; ++index)
        threads.emplace_back([&, index] {
            bench::Connection connection = MustConnect(server, 2 + index);
            while (meter.Passed() < seconds) {
                SendText(connection, "GET " + std::to_string(size) + "\r\n");
                Swallow(connection, size);
                ++transfers;
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    return meter.Finish(1.0 * transfers * mib);
}

/// Connections per second: clients in a closed loop of connect (with the handshake, over TLS), PING, QUIT, end of
/// stream.
Figures Connections(const Server& server, unsigned clients, double seconds)
{
    std::atomic<unsigned long long> made{0};
    std::vector<std::thread> threads;
    const Meter meter(server);
    for (unsigned index = 0; index < clients; ++index)
        threads.emplace_back([&, index] {
            for (unsigned turn = 0; meter.Passed() < seconds; ++turn) {
                bench::Connection connection = MustConnect(server, 2 + (turn * clients + index) % 64);
                SendText(connection, "PING\r\n");
                Swallow(connection, 6);
                SendText(connection, "QUIT\r\n");
                char last = 0;
                while (connection.Recv(&last, 1) > 0) {
                }
                ++made;
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    return meter.Finish(static_cast<double>(made.load()));
}

struct IdleCost
{
    double cpu; ///< processor seconds per second
    double mib; ///< resident growth in MiB
};

IdleCost Idle(const Server& server, unsigned count, double seconds)
{
    const double before = server.ResidentMiB();
    std::vector<bench::Connection> connections;
    for (unsigned index = 0; index < count; ++index) {
        connections.push_back(MustConnect(server, 2 + index % 8));
        SendText(connections.back(), "PING\r\n");
        Swallow(connections.back(), 6);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    const double cpu = server.CpuSeconds();
    const auto start = Clock::now();
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    return {(server.CpuSeconds() - cpu) / Since(start), server.ResidentMiB() - before};
}

double Median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

struct Options
{
    std::string bin;
    double seconds = 0.5;
    double idleSeconds = 5;
    unsigned rounds = 15;
    std::string only;
};

/// The median of each figure over all measurements.
Figures Median(const std::vector<Figures>& all)
{
    std::vector<double> rates;
    std::vector<double> cpus;
    for (const Figures& figures : all) {
        rates.push_back(figures.rate);
        cpus.push_back(figures.cpuMicros);
    }
    return {Median(rates), Median(cpus)};
}

/// Runs one workload against both servers in turn and prints the medians and their ratios, library to bare. The ratio
/// of the rates is the median of the rounds' ratios; lowest and highest stand behind it.
void Compare(const Options& options, const std::string& name, const char* unit, const Server& library,
             const Server& bare, const std::function<Figures(const Server&)>& workload)
{
    if (name.find(options.only) == std::string::npos)
        return;
    std::vector<Figures> ours;
    std::vector<Figures> theirs;
    std::vector<double> ratios;
    for (unsigned round = 0; round < options.rounds; ++round) {
        const bool libraryFirst = round % 2 == 0; // neither gains from its place
        if (libraryFirst)
            ours.push_back(workload(library));
        theirs.push_back(workload(bare));
        if (!libraryFirst)
            ours.push_back(workload(library));
        ratios.push_back(ours.back().rate / theirs.back().rate);
    }
    const auto [low, high] = std::minmax_element(ratios.begin(), ratios.end());
    const Figures our = Median(ours);
    const Figures their = Median(theirs);
    std::printf("%-25s %9.0f %9.0f %-6s %5.2f (%.2f to %.2f) %9.2f %9.2f %6.2f\n", name.c_str(), our.rate, their.rate,
                unit, Median(ratios), *low, *high, our.cpuMicros, their.cpuMicros, our.cpuMicros / their.cpuMicros);
    std::fflush(stdout);
}

/// The same service over TLS, with a certificate made for the occasion.
void CompareSecured(const Options& options)
{
    char folder[] = "/tmp/line_load.XXXXXX";
    if (::mkdtemp(folder) == nullptr)
        bench::Die("mkdtemp");
    const std::string cert = std::string(folder) + "/cert.pem";
    const std::string key = std::string(folder) + "/key.pem";
    const std::string command = "openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj /CN=localhost -out " + cert +
                                " -keyout " + key + " 2>/dev/null";
    if (std::system(command.c_str()) == 0) {
        const std::vector<std::string> arguments{"--port", "0", "--tls", cert, key};
        const Server library(options.bin + "/line_server", arguments, true);
        const Server bare(options.bin + "/bare_line_server", arguments, true);
        Compare(options, "bulk over TLS, 1 stream", "MiB/s", library, bare,
                [&](const Server& server) { return Bulk(server, 1, 64, options.seconds); });
        Compare(options, "bulk over TLS, 4 streams", "MiB/s", library, bare,
                [&](const Server& server) { return Bulk(server, 4, 16, options.seconds); });
        Compare(options, "TLS handshakes, 4 clients", "per s", library, bare,
                [&](const Server& server) { return Connections(server, 4, options.seconds); });
    } else {
        std::printf("TLS left out: the openssl program made no certificate\n");
    }
    ::unlink(cert.c_str());
    ::unlink(key.c_str());
    ::rmdir(folder);
}

void CompareIdle(const Options& options)
{
    if (std::string("idle").find(options.only) == std::string::npos)
        return;
    std::printf("\n%-28s %14s %14s\n", "1000 idle sessions", "processor s/s", "resident MiB");
    const auto print = [&](const char* name, const std::string& program, std::vector<std::string> arguments) {
        const Server server(options.bin + program, std::move(arguments));
        const IdleCost cost = Idle(server, 1000, options.idleSeconds);
        std::printf("%-28s %14.3f %14.1f\n", name, cost.cpu, cost.mib);
        std::fflush(stdout);
        return cost.cpu;
    };
    const double usual = print("library, block time 2 ms", "/line_server", {"--port", "0"});
    const double raised = print("library, block time 100 ms", "/line_server", {"--port", "0", "--block-ms", "100"});
    print("bare, blocking", "/bare_line_server", {"--port", "0"});
    std::printf("%-28s %14.3f\n", "100 ms / 2 ms", usual > 0 ? raised / usual : 0);
}

} // namespace

int main(int argc, char** argv)
{
    Options options;
    const std::string self = argv[0];
    options.bin = self.substr(0, self.rfind('/') == std::string::npos ? 0 : self.rfind('/'));
    if (options.bin.empty())
        options.bin = ".";
    for (int index = 1; index < argc; index += 2) {
        const std::string key = argv[index];
        const std::string value = index + 1 < argc ? argv[index + 1] : "";
        if (key == "--bin" && !value.empty())
            options.bin = value;
        else if (key == "--seconds" && !value.empty())
            options.seconds = std::stod(value);
        else if (key == "--idle-seconds" && !value.empty())
            options.idleSeconds = std::stod(value);
        else if (key == "--rounds" && !value.empty())
            options.rounds = std::max(1U, static_cast<unsigned>(std::stoul(value)));
        else if (key == "--only" && !value.empty())
            options.only = value;
        else {
            std::fprintf(stderr, "line_load: what is \"%s %s\"?\n", key.c_str(), value.c_str());
            return 2;
        }
    }
    std::signal(SIGPIPE, SIG_IGN); // SSL_write would raise it
    std::printf("%-25s %9s %9s %-6s %20s %9s %9s %6s\n", "medians", "library", "bare", "", "ratio               ",
                "us each", "us each", "ratio");
    {
        const Server library(options.bin + "/line_server", {"--port", "0"});
        const Server bare(options.bin + "/bare_line_server", {"--port", "0"});
        const Server tuned(options.bin + "/line_server", {"--port", "0", "--backlog", "128", "--batch"});
        const Server trying(options.bin + "/line_server", {"--port", "0", "--try-us", "50"});
        for (const unsigned count : {1U, 16U, 64U, 256U})
            Compare(options, "commands, " + std::to_string(count) + " connections", "per s", library, bare,
                    [&](const Server& server) { return Commands(server, count, options.seconds); });
        Compare(options, "commands, 1, try 50 us", "per s", trying, bare,
                [&](const Server& server) { return Commands(server, 1, options.seconds); });
        Compare(options, "pipelined, 64 deep", "per s", library, bare,
                [&](const Server& server) { return Pipelined(server, 64, options.seconds); });
        Compare(options, "pipelined, batched", "per s", tuned, bare,
                [&](const Server& server) { return Pipelined(server, 64, options.seconds); });
        Compare(options, "bulk, 1 stream of 256 MiB", "MiB/s", library, bare,
                [&](const Server& server) { return Bulk(server, 1, 256, options.seconds); });
        Compare(options, "bulk, 4 streams of 64 MiB", "MiB/s", library, bare,
                [&](const Server& server) { return Bulk(server, 4, 64, options.seconds); });
        Compare(options, "connections, 4 clients", "per s", library, bare,
                [&](const Server& server) { return Connections(server, 4, options.seconds); });
        Compare(options, "connections, 64, backlog", "per s", tuned, bare,
                [&](const Server& server) { return Connections(server, 64, options.seconds); });
    }
    CompareSecured(options);
    CompareIdle(options);
    return 0;
}
