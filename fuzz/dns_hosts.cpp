// Reading of a hosts file. Input: its text.
#include "fuzz/Check.h"
#include "net/dns/NetDNSHosts.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

using namespace kqlib;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const NetDNSHosts hosts(std::string_view(reinterpret_cast<const char*>(data), size));
    for (const NetDNS::RRTYPE type : {NetDNS::RR_A, NetDNS::RR_AAAA, NetDNS::RR_PTR}) {
        for (const char* name : {"localhost", "a", "1.0.0.127.in-addr.arpa"}) {
            NetDNSAnswer answer;
            if (!hosts.Find(name, type, answer))
                continue;
            KQ_FUZZ_CHECK((answer.GetCode() == 0) == !answer.GetRecords().empty());
            for (const NetDNSAnswer::RECORD& record : answer.GetRecords()) {
                NetIP address;
                KQ_FUZZ_CHECK(address.Set(record.text) == (type != NetDNS::RR_PTR));
                KQ_FUZZ_CHECK(type == NetDNS::RR_PTR || address.IsIP4() == (type == NetDNS::RR_A));
            }
        }
    }
    return 0;
}
