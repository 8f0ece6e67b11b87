// The command reception of a connection. Input: options (bit 0: a lone LF ends a command), the command after which the
// rest is taken raw, the room for that, the limit, the capacity of the buffer, the pieces; then the stream.
#include "fuzz/Check.h"
#include "fuzz/CommandModel.h"
#include "fuzz/Input.h"
#include "fuzz/MemorySocket.h"

#include <string>
#include <vector>

using namespace kqlib;
using namespace kqlib::fuzz;

namespace {

/// The reader under test: its calls in the prescribed order.
class Reader
{
public:
    Reader(NetTCP& socket, unsigned long capacity, const COMMANDRULES& rules)
        : m_socket(socket)
        , m_rules(rules)
        , m_bytes(capacity)
        , m_buffer{capacity, m_bytes.data(), 77, 99, true}
    {
        m_socket.RecvPrepForFirstCmd(m_buffer, m_text, m_done);
    }

    /// False: the connection is gone, GetText() is what was not complete.
    bool Next(COMMAND& command)
    {
        bool tooLong = false;
        while (m_socket.RecvTryGetCmd(m_rules.loneLFEnds, static_cast<unsigned long>(m_rules.limit), m_buffer, m_text,
                                      tooLong, m_done))
        {
            KQ_FUZZ_CHECK(m_done || !tooLong);
            if (!m_done)
                continue;
            command = {m_text, tooLong, 0};
            m_socket.RecvPrepForNextCmd(m_buffer, m_text, m_done);
            return true;
        }
        KQ_FUZZ_CHECK(!m_done && m_buffer.length == 0);
        return false;
    }
    const String& GetText() const { return m_text; }

    /// Everything that is still to come, as it is.
    std::string TakeRaw(std::size_t room)
    {
        std::string raw;
        std::vector<unsigned char> out(room);
        for (bool more = true; more;) {
            unsigned long length = static_cast<unsigned long>(room);
            KQ_FUZZ_CHECK(m_socket.RecvPurgeRemaining(m_buffer, out.data(), length, more));
            KQ_FUZZ_CHECK(length == room || !more);
            raw.append(reinterpret_cast<const char*>(out.data()), length);
        }
        for (unsigned long length = m_buffer.capacity; m_socket.Recv(m_bytes.data(), length);
             length = m_buffer.capacity)
            raw.append(reinterpret_cast<const char*>(m_bytes.data()), length);
        return raw;
    }

private:
    NetTCP& m_socket;
    const COMMANDRULES m_rules;
    std::vector<unsigned char> m_bytes;
    NetTCP::RECVBUF m_buffer;
    String m_text;
    bool m_done = true;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input input(data, size);
    COMMANDRULES rules;
    rules.loneLFEnds = (input.Byte() & 1) != 0;
    const std::size_t rawAfter = input.Byte();
    const std::size_t room = 1U + input.Byte();
    rules.limit = input.Byte();
    const unsigned long capacity = 1UL + input.Byte();
    const std::vector<std::size_t> pieces = input.Pieces();
    const std::string_view stream = input.Rest();

    MemorySocket<NetTCP> socket(stream, pieces);
    Reader reader(socket, capacity, rules);
    std::size_t position = 0;
    std::size_t count = 0;
    for (const COMMAND& expected : SplitStream(stream, rules)) {
        if (count++ == rawAfter) {
            KQ_FUZZ_CHECK(reader.TakeRaw(room) == stream.substr(position));
            return 0;
        }
        COMMAND command;
        KQ_FUZZ_CHECK(reader.Next(command));
        KQ_FUZZ_CHECK(command.text == expected.text && command.tooLong == expected.tooLong);
        position = expected.end;
    }
    COMMAND none;
    KQ_FUZZ_CHECK(!reader.Next(none));
    KQ_FUZZ_CHECK(reader.GetText() == String(stream.substr(position)));
    KQ_FUZZ_CHECK(!socket.IsConnected() && socket.GetLastError() == NetSocket::ERR_IO);
    return 0;
}
