// The measure of bench/line_load: the same line protocol as bench/line_server on bare blocking sockets, one thread per
// connection and nothing around it.
//
// usage: bare_line_server --port N    (0: any port; the one taken is printed)

#include "bench/BareSockets.h"

#include <charconv>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace {

constexpr std::size_t RECEIVE_SIZE = 65536;
constexpr std::size_t BULK_PIECE = 65536;

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

bool SendBulk(int socket, unsigned long long size)
{
    static const std::vector<char> piece(BULK_PIECE, 'x');
    while (size > 0) {
        const std::size_t part = size < BULK_PIECE ? static_cast<std::size_t>(size) : BULK_PIECE;
        if (!SendAll(socket, piece.data(), part))
            return false;
        size -= part;
    }
    return true;
}

/// False when the connection is to be closed.
bool HandleLine(int socket, std::string_view line)
{
    if (line == "PING")
        return SendAll(socket, "PONG\r\n", 6);
    if (line.starts_with("GET ")) {
        unsigned long long size = 0;
        std::from_chars(line.data() + 4, line.data() + line.size(), size);
        return SendBulk(socket, size);
    }
    return line != "QUIT";
}

void Serve(int socket)
{
    std::vector<char> buffer(RECEIVE_SIZE);
    std::string line;
    for (bool open = true; open;) {
        const ssize_t got = ::recv(socket, buffer.data(), buffer.size(), 0);
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
            open = HandleLine(socket, line);
            line.clear();
        }
    }
    ::close(socket);
}

} // namespace

int main(int argc, char** argv)
{
    const unsigned port = argc == 3 && std::strcmp(argv[1], "--port") == 0 ? static_cast<unsigned>(std::atoi(argv[2])) : 0;
    const int listener = bench::Listen(static_cast<std::uint16_t>(port));
    std::printf("listening on 127.0.0.1:%u\n", bench::PortOf(listener));
    std::fflush(stdout);
    for (;;) {
        const int connection = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (connection >= 0)
            std::thread(Serve, connection).detach();
    }
}
