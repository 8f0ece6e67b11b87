// The measure of bench/line_load: the same line protocol as bench/line_server on bare blocking sockets, one thread per
// connection and nothing around it.
//
// usage: bare_line_server [--port N] [--tls CERT KEY]    (port 0: any port; the one taken is printed)
//   --tls: TLS from the first byte, with these PEM files

#include "bench/Connection.h"

#include <charconv>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace {

constexpr std::size_t RECEIVE_SIZE = 65536;
constexpr std::size_t BULK_PIECE = 65536;

bool SendBulk(bench::Connection& connection, unsigned long long size)
{
    static const std::vector<char> piece(BULK_PIECE, 'x');
    while (size > 0) {
        const std::size_t part = size < BULK_PIECE ? static_cast<std::size_t>(size) : BULK_PIECE;
        if (!connection.SendAll(piece.data(), part))
            return false;
        size -= part;
    }
    return true;
}

/// False when the connection is to be closed.
bool HandleLine(bench::Connection& connection, std::string_view line)
{
    if (line == "PING")
        return connection.SendAll("PONG\r\n", 6);
    if (line.starts_with("GET ")) {
        unsigned long long size = 0;
        std::from_chars(line.data() + 4, line.data() + line.size(), size);
        return SendBulk(connection, size);
    }
    return line != "QUIT";
}

/// TLS files; empty: plain.
struct Files
{
    std::string cert;
    std::string key;
};

void Serve(int socket, const Files& files)
{
    bench::Connection connection(socket);
    if (!files.cert.empty() && !connection.Accept(files.cert, files.key))
        return;
    std::vector<char> buffer(RECEIVE_SIZE);
    std::string line;
    for (bool open = true; open;) {
        const ssize_t got = connection.Recv(buffer.data(), buffer.size());
        if (got <= 0)
            break;
        for (ssize_t index = 0; index < got && open; ++index) {
            const char character = buffer[static_cast<std::size_t>(index)];
            if (character != '\n') {
                line += character;
                continue;
            }
            if (!line.empty() && line.back() == '\r')
                line.pop_back();
            open = HandleLine(connection, line);
            line.clear();
        }
    }
    connection.End();
}

} // namespace

int main(int argc, char** argv)
{
    unsigned port = 0;
    Files files;
    for (int index = 1; index + 1 < argc; ++index) {
        if (std::strcmp(argv[index], "--port") == 0)
            port = static_cast<unsigned>(std::atoi(argv[++index]));
        else if (std::strcmp(argv[index], "--tls") == 0 && index + 2 < argc)
            files = {argv[index + 1], argv[index + 2]};
    }
    std::signal(SIGPIPE, SIG_IGN); // SSL_write would raise it
    const int listener = bench::Listen(static_cast<std::uint16_t>(port));
    std::printf("listening on 127.0.0.1:%u\n", bench::PortOf(listener));
    std::fflush(stdout);
    for (;;) {
        const int connection = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (connection >= 0)
            std::thread(Serve, connection, std::cref(files)).detach();
    }
}
