#include "tests/peers/DNSMessage.h"

#include <algorithm>
#include <cstdlib>
#include <sstream>
#include <utility>

namespace kqlib::test {

namespace {

using Bytes = DNSMessage::Bytes;

void Put16(Bytes& bytes, unsigned value)
{
    bytes.push_back(static_cast<unsigned char>(value >> 8));
    bytes.push_back(static_cast<unsigned char>(value & 0xFF));
}

void Put32(Bytes& bytes, std::uint32_t value)
{
    Put16(bytes, value >> 16);
    Put16(bytes, value & 0xFFFF);
}

void Put(Bytes& bytes, const Bytes& more)
{
    bytes.insert(bytes.end(), more.begin(), more.end());
}

constexpr std::size_t HEADER_SIZE = 12;

} // namespace

DNSQuery::DNSQuery(std::vector<unsigned char> message)
    : bytes(std::move(message))
{
    std::size_t place = HEADER_SIZE;
    while (place < bytes.size() && bytes[place] != 0) {
        const std::size_t length = bytes[place++];
        if (place + length > bytes.size())
            return;
        if (!name.empty())
            name += '.';
        name.append(bytes.begin() + static_cast<std::ptrdiff_t>(place),
                    bytes.begin() + static_cast<std::ptrdiff_t>(place + length));
        place += length;
    }
    if (place + 3 <= bytes.size())
        type = static_cast<unsigned>(bytes[place + 1] << 8 | bytes[place + 2]);
}

DNSMessage::DNSMessage(const DNSQuery& query)
    : DNSMessage(query.name, query.type)
{
    if (query.bytes.size() >= 2)
        std::copy_n(query.bytes.begin(), 2, m_bytes.begin());
}

DNSMessage::DNSMessage(const std::string& name, unsigned type)
    : m_bytes{0xFF, 0xFF, 0x81, 0x80, 0, 1, 0, 0, 0, 0, 0, 0}
{
    Put(m_bytes, EncodeName(name));
    Put16(m_bytes, type);
    Put16(m_bytes, 1);
}

DNSMessage& DNSMessage::Code(unsigned responseCode)
{
    m_bytes[3] = static_cast<unsigned char>((m_bytes[3] & 0xF0) | (responseCode & 0x0F));
    return *this;
}

DNSMessage& DNSMessage::Claim(unsigned answers)
{
    m_claimed = static_cast<long>(answers);
    return *this;
}

DNSMessage& DNSMessage::AddA(const std::string& dotted, std::uint32_t ttl)
{
    Bytes data;
    std::istringstream parts(dotted);
    for (std::string part; std::getline(parts, part, '.');)
        data.push_back(static_cast<unsigned char>(std::atoi(part.c_str())));
    return AddRecord(Pointer(QUESTION), A, ttl, data);
}

DNSMessage& DNSMessage::AddCName(const std::string& target, std::uint32_t ttl)
{
    return AddRecord(Pointer(QUESTION), CNAME, ttl, EncodeName(target));
}

DNSMessage& DNSMessage::AddPtr(const std::string& name, std::uint32_t ttl)
{
    return AddRecord(Pointer(QUESTION), PTR, ttl, EncodeName(name));
}

DNSMessage& DNSMessage::AddMx(unsigned preference, const std::string& name, std::uint32_t ttl)
{
    Bytes data;
    Put16(data, preference);
    Put(data, EncodeName(name));
    return AddRecord(Pointer(QUESTION), MX, ttl, data);
}

DNSMessage& DNSMessage::AddSrv(unsigned priority, unsigned weight, unsigned port, const std::string& name,
                               std::uint32_t ttl)
{
    Bytes data;
    Put16(data, priority);
    Put16(data, weight);
    Put16(data, port);
    Put(data, EncodeName(name));
    return AddRecord(Pointer(QUESTION), SRV, ttl, data);
}

DNSMessage& DNSMessage::AddSoa(std::uint32_t ttl, std::uint32_t minimum)
{
    Bytes data = EncodeName("ns.example");
    Put(data, EncodeName("admin.example"));
    for (const std::uint32_t number : {1U, 3600U, 600U, 86400U, minimum})
        Put32(data, number);
    AddRecord(EncodeName("example"), SOA, ttl, data);
    --m_answers;
    ++m_authorities;
    return *this;
}

DNSMessage& DNSMessage::AddText(unsigned type, std::initializer_list<std::string> strings, std::uint32_t ttl)
{
    Bytes data;
    for (const std::string& text : strings) {
        data.push_back(static_cast<unsigned char>(text.size()));
        data.insert(data.end(), text.begin(), text.end());
    }
    return AddRecord(Pointer(QUESTION), type, ttl, data);
}

DNSMessage& DNSMessage::AddRecord(const Bytes& owner, unsigned type, std::uint32_t ttl, const Bytes& data,
                                  long dataLength)
{
    Put(m_bytes, owner);
    Put16(m_bytes, type);
    Put16(m_bytes, 1);
    Put32(m_bytes, ttl);
    Put16(m_bytes, static_cast<unsigned>(dataLength < 0 ? static_cast<long>(data.size()) : dataLength));
    Put(m_bytes, data);
    ++m_answers;
    return *this;
}

DNSMessage& DNSMessage::Raw(const Bytes& bytes)
{
    Put(m_bytes, bytes);
    return *this;
}

Bytes DNSMessage::Build() const
{
    Bytes message = m_bytes;
    const auto answers = static_cast<unsigned>(m_claimed < 0 ? static_cast<long>(m_answers) : m_claimed);
    message[6] = static_cast<unsigned char>(answers >> 8);
    message[7] = static_cast<unsigned char>(answers & 0xFF);
    message[9] = static_cast<unsigned char>(m_authorities);
    return message;
}

Bytes DNSMessage::EncodeName(const std::string& name)
{
    Bytes bytes;
    std::istringstream labels(name);
    for (std::string label; std::getline(labels, label, '.');) {
        bytes.push_back(static_cast<unsigned char>(label.size()));
        bytes.insert(bytes.end(), label.begin(), label.end());
    }
    bytes.push_back(0);
    return bytes;
}

Bytes DNSMessage::Pointer(unsigned offset)
{
    return {static_cast<unsigned char>(0xC0 | offset >> 8), static_cast<unsigned char>(offset & 0xFF)};
}

} // namespace kqlib::test
