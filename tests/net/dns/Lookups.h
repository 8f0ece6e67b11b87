// Lookups: what tests of the resolver ask of it, and usual scripts of a name server.
#pragma once

#include "common/Messages.h"
#include "common/STRINGS.h"
#include "net/dns/NetDNS.h"
#include "tests/peers/DNSMessage.h"
#include "tests/peers/FakeDNSServer.h"

#include <cstddef>
#include <string>
#include <vector>

namespace kqlib::test {

using Replies = FakeDNSServer::Replies;

inline std::vector<int> Codes(const Messages& msgs)
{
    std::vector<int> codes;
    for (ULONG i = 0; i < msgs.GetMessageCount(); ++i)
        codes.push_back(msgs.Get(i));
    return codes;
}

inline std::vector<std::string> ARecords(const NetDNS& dns)
{
    std::vector<std::string> records;
    for (ULONG i = 0; i < dns.GetARecordCount(); ++i)
        records.push_back(dns.GetARecord(i).str());
    return records;
}

inline void SetServers(NetDNS& dns, const std::vector<std::string>& servers)
{
    STRINGS texts;
    for (const std::string& server : servers)
        texts.push_back(String(server));
    dns.SetDNSServers(texts);
}

/// Answers every query with one address.
inline Replies AnswerA(const DNSQuery& query, std::size_t)
{
    return {{DNSMessage(query).AddA("10.0.0.1").Build()}};
}

inline Replies Silence(const DNSQuery&, std::size_t)
{
    return {};
}

inline FakeDNSServer::Script AnswerCode(unsigned code)
{
    return [code](const DNSQuery& query, std::size_t) { return Replies{{DNSMessage(query).Code(code).Build()}}; };
}

} // namespace kqlib::test
