#include "net/dns/NetDNSExchange.h"

#include "platform/Sockets.h"

#include "common/NetIP.h"
#include "common/TimedEvent.h"
#include "net/dns/NetDNSWriter.h"

#include <openssl/rand.h>

#include <algorithm>
#include <memory>

namespace kqlib {

namespace {

constexpr unsigned short DNS_PORT = 53;
constexpr std::size_t MOST_SERVER_ADDRESSES = 50; ///< of one server given by its host name
constexpr int MOST_QUESTIONS = 8;                 ///< of one look-up, one for each end of a chain of aliases
constexpr String::size_type LONGEST_NAME = 253;   ///< as a text
constexpr String::size_type LONGEST_LABEL = 63;
constexpr std::size_t HEADER_SIZE = 12;
constexpr std::size_t TYPE_AND_CLASS_SIZE = 4;
constexpr std::uint16_t QUERY_FLAGS = 0x0100; ///< standard query, recursion desired
constexpr std::uint16_t CLASS_IN = 1;
constexpr std::uint16_t TYPE_OPT = 41;
constexpr std::uint16_t WELCOME_SIZE = 1232; ///< of a datagram: one that hardly any network has to cut in pieces
constexpr std::size_t LONGEST_DATAGRAM = 65536;

/// Closes a socket at the end of a scope.
class SOCKET_GUARD
{
public:
    explicit SOCKET_GUARD(platform::SocketHandle handle)
        : m_handle(handle)
    {
    }
    ~SOCKET_GUARD() { platform::CloseSocket(m_handle); }
    SOCKET_GUARD(const SOCKET_GUARD&) = delete;
    SOCKET_GUARD& operator=(const SOCKET_GUARD&) = delete;

    platform::SocketHandle Get() const { return m_handle; }

private:
    platform::SocketHandle m_handle;
};

platform::Endpoint EndpointOf(const NetIP& server)
{
    platform::Endpoint endpoint;
    endpoint.family = server.IsIP4() ? platform::Family::IP4 : platform::Family::IP6;
    endpoint.port = DNS_PORT;
    std::copy_n(server.GetBytes(), server.IsIP4() ? 4 : 16, endpoint.bytes);
    return endpoint;
}

bool IsLetter(BYTE byte)
{
    return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z');
}

constexpr BYTE CASE_BIT = 0x20; ///< by which the two cases of a letter differ

/// Turns the case of each letter of the encoded name by chance. False: there are no random numbers to be had.
bool MixCase(std::vector<BYTE>& query, std::size_t nameEnd)
{
    std::vector<BYTE> chance(nameEnd - HEADER_SIZE);
    if (RAND_bytes(chance.data(), static_cast<int>(chance.size())) != 1)
        return false;
    for (std::size_t i = HEADER_SIZE; i < nameEnd; ++i) {
        if (IsLetter(query[i])) // lengths are below 64, which is no letter
            query[i] = static_cast<BYTE>(query[i] ^ (chance[i - HEADER_SIZE] & CASE_BIT));
    }
    return true;
}

BYTE Fold(BYTE byte)
{
    return byte >= 'A' && byte <= 'Z' ? static_cast<BYTE>(byte | CASE_BIT) : byte;
}

/// The size of header and question of a query.
std::size_t QuestionEnd(const std::vector<BYTE>& query)
{
    std::size_t at = HEADER_SIZE;
    while (query[at] != 0)
        at += query[at] + std::size_t{1};
    return at + 1 + TYPE_AND_CLASS_SIZE;
}

/// Waits until the socket can be read or written. False: the tick has come, or the wait failed.
bool WaitUntil(platform::SocketHandle handle, bool forRead, std::uint32_t endTick)
{
    const auto left = static_cast<std::int32_t>(endTick - static_cast<std::uint32_t>(TimedEvent::sGetNow()));
    return left > 0 &&
           platform::WaitSocket(handle, forRead, static_cast<std::uint32_t>(left)) == platform::WaitResult::READY;
}

bool ConnectUntil(platform::SocketHandle handle, const platform::Endpoint& server, std::uint32_t endTick)
{
    platform::IoResult result = platform::ConnectSocket(handle, server);
    while (result == platform::IoResult::IN_PROGRESS && WaitUntil(handle, false, endTick))
        result = platform::PollConnect(handle, 0);
    return result == platform::IoResult::DONE;
}

bool CanBeAskedFor(const String& name)
{
    return name.size() <= LONGEST_NAME && name.find('\0') == String::npos &&
           NetDNSWriter().WriteName(name, LONGEST_LABEL);
}

} // namespace

NetDNSExchange::NetDNSExchange(const NetDNSOptions& options)
    : m_options(options)
    , m_start(static_cast<std::uint32_t>(TimedEvent::sGetNow()))
{
}

bool NetDNSExchange::sGetAddresses(const String& server, Vector<NetIP>& addresses)
{
    NetIP literal;
    if (literal.Set(server)) {
        addresses.Add(literal);
        return true;
    }
    unsigned char found[MOST_SERVER_ADDRESSES][4];
    const std::size_t count = platform::LookupHostIP4(server.c_str(), found, MOST_SERVER_ADDRESSES);
    for (std::size_t i = 0; i < count; ++i) {
        NetIP address;
        if (address.Set(NetIP::IP_4, found[i]))
            addresses.Add(address);
    }
    return addresses.GetCount() > 0;
}

NetDNSAnswer NetDNSExchange::Run(const std::vector<String>& servers, const String& name, NetDNS::RRTYPE type)
{
    NetDNSAnswer answer;
    if (!CanBeAskedFor(name)) {
        answer.Fail(NetDNS::MSG_NAME_ERROR);
        answer.LimitLife(0); // no zone has said so: there is nothing to keep
        return answer;
    }
    Vector<NetIP> addresses;
    for (const String& server : servers)
        sGetAddresses(server, addresses); // one that is not known is as good as silent
    String asked = name;
    std::uint32_t lifeSec = 0xFFFFFFFFU;
    for (int question = 0; question < MOST_QUESTIONS; ++question) {
        answer = xAskAll(addresses, asked, type);
        answer.LimitLife(lifeSec);
        if (answer.GetCode() != 0 || answer.GetAlias().empty())
            return answer;
        asked = answer.GetAlias();
        lifeSec = answer.GetLifeSec();
    }
    answer.Fail(NetDNS::MSG_SERVER_FAILURE);
    return answer;
}

/// Goes through the servers until one gives a verdict or the time is over. Otherwise the last failure.
NetDNSAnswer NetDNSExchange::xAskAll(const Vector<NetIP>& servers, const String& name, NetDNS::RRTYPE type)
{
    NetDNSAnswer answer;
    for (std::uint32_t round = 0; round < m_options.GetRounds(); ++round) {
        bool silent = false;
        for (const NetIP& server : servers) {
            if (xGetTimeLeftMs() == 0)
                return answer;
            NetDNSAnswer given;
            if (!xAsk(server, name, type, given)) {
                silent = true;
                continue;
            }
            answer = given;
            if (answer.IsVerdict())
                return answer;
        }
        if (!silent)
            break; // all have answered; asking again would change nothing
    }
    return answer;
}

/// Asks one server once, by other ways where its answer asks for them. False: it gave no answer in time.
bool NetDNSExchange::xAsk(const NetIP& server, const String& name, NetDNS::RRTYPE type, NetDNSAnswer& answer)
{
    if (!xAskBy(m_options.GetLargeAnswers() ? WAY_EXTENDED : WAY_PLAIN, server, name, type, answer))
        return false;
    const bool misunderstood =
        answer.GetCode() == NetDNS::MSG_FORMAT_ERROR || answer.GetCode() == NetDNS::MSG_NOT_IMPLEMENTED;
    if (m_options.GetLargeAnswers() && misunderstood) { // a server from before EDNS (RFC 6891 section 7)
        if (!xAskBy(WAY_PLAIN, server, name, type, answer))
            return false;
    }
    if (!answer.IsTruncated())
        return true;
    if (m_options.GetLargeAnswers() && xAskBy(WAY_STREAM, server, name, type, answer) && !answer.IsTruncated())
        return true;
    answer.Fail(NetDNS::MSG_SERVER_FAILURE);
    return true;
}

bool NetDNSExchange::xAskBy(WAY way, const NetIP& server, const String& name, NetDNS::RRTYPE type, NetDNSAnswer& answer)
{
    std::vector<BYTE> query;
    std::vector<BYTE> message;
    if (!xMakeQuery(way, name, type, query))
        return false;
    const platform::Endpoint endpoint = EndpointOf(server);
    if (!(way == WAY_STREAM ? xAskByStream(endpoint, query, message) : xAskByDatagram(endpoint, query, message)))
        return false;
    answer.Parse(message.data(), static_cast<ULONG>(message.size()), name, type);
    return true;
}

/// A socket for each query: the system gives it a port that nobody knows beforehand, and lets nothing in that does not
/// come from the server.
bool NetDNSExchange::xAskByDatagram(const platform::Endpoint& server, const std::vector<BYTE>& query,
                                    std::vector<BYTE>& message)
{
    const SOCKET_GUARD socket(platform::OpenSocket(false, server.family));
    std::size_t sent = query.size();
    return socket.Get() != platform::INVALID_SOCKET_HANDLE &&
           platform::ConnectSocket(socket.Get(), server) == platform::IoResult::DONE &&
           platform::SendSocket(socket.Get(), query.data(), sent) == platform::IoResult::DONE && sent == query.size() &&
           xReceive(socket.Get(), query, message);
}

/// Waits for the answer to the query and counts what else comes. False: the time is over, or nobody serves the port.
bool NetDNSExchange::xReceive(std::uint32_t handle, const std::vector<BYTE>& query, std::vector<BYTE>& message)
{
    // Room for the largest datagram: one that is cut would count as a failure of the socket.
    const auto buffer = std::make_unique_for_overwrite<BYTE[]>(LONGEST_DATAGRAM);
    const std::uint32_t endTick = xGetEndOfWait();
    while (WaitUntil(handle, true, endTick)) {
        std::size_t size = LONGEST_DATAGRAM;
        switch (platform::RecvSocket(handle, buffer.get(), size)) {
        case platform::IoResult::DONE:
            if (xAnswers(query, buffer.get(), static_cast<ULONG>(size))) {
                message.assign(buffer.get(), buffer.get() + size);
                return true;
            }
            ++m_refused;
            break;
        case platform::IoResult::CLOSED: // a datagram without a byte
            ++m_refused;
            break;
        case platform::IoResult::WOULD_BLOCK: // one that the system found broken when it looked closer
            break;
        default:
            return false;
        }
    }
    return false;
}

/// Asks over a connection (RFC 1035 section 4.2.2): two bytes of length stand before each message.
bool NetDNSExchange::xAskByStream(const platform::Endpoint& server, const std::vector<BYTE>& query,
                                  std::vector<BYTE>& message)
{
    const std::uint32_t endTick = xGetEndOfWait();
    const SOCKET_GUARD socket(platform::OpenSocket(true, server.family));
    if (socket.Get() == platform::INVALID_SOCKET_HANDLE || !ConnectUntil(socket.Get(), server, endTick))
        return false;
    std::vector<BYTE> framed(2 + query.size());
    framed[0] = static_cast<BYTE>(query.size() >> 8);
    framed[1] = static_cast<BYTE>(query.size() & 0xFF);
    std::copy(query.begin(), query.end(), framed.begin() + 2);
    std::vector<BYTE> length;
    if (!xSendAll(socket.Get(), framed, endTick) || !xRecvAll(socket.Get(), 2, endTick, length) ||
        !xRecvAll(socket.Get(), length[0] * std::size_t{256} + length[1], endTick, message))
        return false;
    if (xAnswers(query, message.data(), static_cast<ULONG>(message.size())))
        return true;
    ++m_refused;
    return false;
}

bool NetDNSExchange::xSendAll(std::uint32_t handle, const std::vector<BYTE>& bytes, std::uint32_t endTick)
{
    for (std::size_t done = 0; done < bytes.size();) {
        if (!WaitUntil(handle, false, endTick))
            return false;
        std::size_t size = bytes.size() - done;
        const platform::IoResult result = platform::SendSocket(handle, bytes.data() + done, size);
        if (result != platform::IoResult::DONE && result != platform::IoResult::WOULD_BLOCK)
            return false;
        done += size;
    }
    return true;
}

/// Appends count bytes.
bool NetDNSExchange::xRecvAll(std::uint32_t handle, std::size_t count, std::uint32_t endTick, std::vector<BYTE>& bytes)
{
    std::size_t done = bytes.size();
    const std::size_t end = done + count;
    bytes.resize(end);
    while (done < end) {
        if (!WaitUntil(handle, true, endTick))
            return false;
        std::size_t size = end - done;
        const platform::IoResult result = platform::RecvSocket(handle, bytes.data() + done, size);
        if (result != platform::IoResult::DONE && result != platform::IoResult::WOULD_BLOCK)
            return false;
        done += size;
    }
    return true;
}

/// A query (RFC 1035 section 4.1) with an identifier of its own. False: there are no random numbers to be had.
bool NetDNSExchange::xMakeQuery(WAY way, const String& name, NetDNS::RRTYPE type, std::vector<BYTE>& query) const
{
    BYTE id[2];
    if (RAND_bytes(id, sizeof(id)) != 1)
        return false;
    NetDNSWriter writer;
    writer.Write8(id[0]);
    writer.Write8(id[1]);
    writer.Write16(QUERY_FLAGS);
    writer.Write16(1);                           // one question
    writer.Write16(0);                           // no answers,
    writer.Write16(0);                           // authorities
    writer.Write16(way == WAY_EXTENDED ? 1 : 0); // an additional record: see below
    if (!writer.WriteName(name, LONGEST_LABEL))
        return false;
    const ULONG nameEnd = writer.GetLength();
    writer.Write16(type);
    writer.Write16(CLASS_IN);
    if (way == WAY_EXTENDED) { // RFC 6891 section 6.1.2
        writer.Write8(0);      // of the root
        writer.Write16(TYPE_OPT);
        writer.Write16(WELCOME_SIZE); // where others have a class
        writer.Write16(0);            // version 0, no flags, where others have a life
        writer.Write16(0);
        writer.Write16(0); // no options
    }
    query.assign(writer.GetData(), writer.GetData() + writer.GetLength());
    return !m_options.GetMixedCase() || MixCase(query, nameEnd);
}

/// Whether a message is the answer to the query: a response with its identifier and its question, letter by letter.
bool NetDNSExchange::xAnswers(const std::vector<BYTE>& query, const BYTE* message, ULONG length) const
{
    const std::size_t end = QuestionEnd(query);
    constexpr BYTE RESPONSE_AND_OPCODE = 0xF8;
    constexpr BYTE RESPONSE = 0x80;
    if (length < end || message[0] != query[0] || message[1] != query[1] ||
        (message[2] & RESPONSE_AND_OPCODE) != RESPONSE || message[4] != 0 || message[5] != 1)
        return false;
    const BYTE* const question = message + HEADER_SIZE;
    if (m_options.GetMixedCase())
        return std::equal(query.begin() + HEADER_SIZE, query.begin() + static_cast<std::ptrdiff_t>(end), question);
    const auto nameEnd = query.begin() + static_cast<std::ptrdiff_t>(end - TYPE_AND_CLASS_SIZE);
    return std::equal(query.begin() + HEADER_SIZE, nameEnd, question,
                      [](BYTE left, BYTE right) { return Fold(left) == Fold(right); }) &&
           std::equal(nameEnd, nameEnd + TYPE_AND_CLASS_SIZE, message + end - TYPE_AND_CLASS_SIZE);
}

/// The tick at which the wait for one answer ends.
std::uint32_t NetDNSExchange::xGetEndOfWait() const
{
    return static_cast<std::uint32_t>(TimedEvent::sGetNow() + std::min(m_options.GetAnswerWaitMs(), xGetTimeLeftMs()));
}

std::uint32_t NetDNSExchange::xGetTimeLeftMs() const
{
    const auto passed = static_cast<std::uint32_t>(TimedEvent::sGetNow() - m_start);
    return passed < m_options.GetLookupLimitMs() ? m_options.GetLookupLimitMs() - passed : 0;
}

} // namespace kqlib
