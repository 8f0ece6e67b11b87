// DNSMessage: DNS messages put together byte by byte, right or wrong, for tests.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

namespace kqlib::test {

/// A query as it arrived: all its bytes, and what its question says.
struct DNSQuery
{
    std::vector<unsigned char> bytes;
    std::string name; ///< labels joined by "."; empty when the question cannot be read
    unsigned type = 0;
    unsigned port = 0; ///< it came from; set by a server

    explicit DNSQuery(std::vector<unsigned char> message);
    DNSQuery() = default;
};

/// Builds an answer. The record functions count the record; Raw appends anything without counting.
/// A name given as text is written label by label; Pointer writes a compression pointer instead.
class DNSMessage
{
public:
    using Bytes = std::vector<unsigned char>;

    static constexpr unsigned A = 1;
    static constexpr unsigned CNAME = 5;
    static constexpr unsigned PTR = 12;
    static constexpr unsigned MX = 15;
    static constexpr unsigned TXT = 16;
    static constexpr unsigned SPF = 99;
    static constexpr unsigned SOA = 6;
    static constexpr unsigned AAAA = 28;
    static constexpr unsigned SRV = 33;
    static constexpr unsigned OTHER = 28; ///< a type that a resolver without options never asks for

    /// A header (response, recursion available) with the query's identifier, and the question copied from the query.
    explicit DNSMessage(const DNSQuery& query);
    /// The same for a question of its own.
    DNSMessage(const std::string& name, unsigned type);

    DNSMessage& Code(unsigned responseCode);
    /// Claims this many answers in place of the true number.
    DNSMessage& Claim(unsigned answers);

    /// Records. The owner is a pointer to the question's name.
    DNSMessage& AddA(const std::string& dotted, std::uint32_t ttl = 3600);
    DNSMessage& AddCName(const std::string& target, std::uint32_t ttl = 3600);
    DNSMessage& AddPtr(const std::string& name, std::uint32_t ttl = 3600);
    DNSMessage& AddMx(unsigned preference, const std::string& name, std::uint32_t ttl = 3600);
    DNSMessage& AddSrv(unsigned priority, unsigned weight, unsigned port, const std::string& name,
                       std::uint32_t ttl = 3600);
    /// The authority record that comes with "nothing"; behind all answers.
    DNSMessage& AddSoa(std::uint32_t ttl, std::uint32_t minimum);
    DNSMessage& AddText(unsigned type, std::initializer_list<std::string> strings, std::uint32_t ttl = 3600);
    /// A record with the given data; dataLength < 0: the data's own length.
    DNSMessage& AddRecord(const Bytes& owner, unsigned type, std::uint32_t ttl, const Bytes& data,
                          long dataLength = -1);
    DNSMessage& Raw(const Bytes& bytes);

    Bytes Build() const;

    static Bytes EncodeName(const std::string& name);
    static Bytes Pointer(unsigned offset);
    /// The offset of the question's name in every message.
    static constexpr unsigned QUESTION = 12;

private:
    Bytes m_bytes;
    unsigned m_answers = 0;
    unsigned m_authorities = 0;
    long m_claimed = -1;
};

} // namespace kqlib::test
