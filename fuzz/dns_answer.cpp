// Strict parsing of a whole answer. Input: one byte that chooses the type asked for, then the message.
#include "fuzz/Check.h"
#include "net/dns/NetDNSAnswer.h"

#include <cstddef>
#include <cstdint>

using namespace kqlib;

namespace {

constexpr String::size_type LONGEST_NAME = 253;
constexpr std::size_t MOST_TEXT = 256UL * 1024UL; ///< of all records together, bytes

/// What a parse may leave behind.
void CheckAnswer(const NetDNSAnswer& answer)
{
    const bool found = !answer.GetRecords().empty() || !answer.GetAlias().empty();
    KQ_FUZZ_CHECK((answer.GetCode() == 0) == found);
    KQ_FUZZ_CHECK(found || (answer.GetCode() >= NetDNS::MSG_NO_RECORDS && answer.GetCode() <= NetDNS::MSG_REFUSED));
    KQ_FUZZ_CHECK(answer.GetRecords().empty() || answer.GetAlias().empty());
    KQ_FUZZ_CHECK(!answer.IsTruncated() || !found);
    KQ_FUZZ_CHECK(answer.GetAlias().size() <= LONGEST_NAME);
    std::size_t text = 0;
    std::uint16_t priority = 0;
    for (const NetDNSAnswer::RECORD& record : answer.GetRecords()) {
        text += record.text.size();
        KQ_FUZZ_CHECK(record.priority >= priority);
        priority = record.priority;
    }
    KQ_FUZZ_CHECK(text <= MOST_TEXT);
    KQ_FUZZ_CHECK(!found || answer.GetLifeSec() <= 0x7FFFFFFF);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0)
        return 0;
    constexpr NetDNS::RRTYPE TYPES[] = {NetDNS::RR_A,   NetDNS::RR_PTR,  NetDNS::RR_MX, NetDNS::RR_TXT,
                                        NetDNS::RR_SPF, NetDNS::RR_AAAA, NetDNS::RR_SRV};
    NetDNSAnswer answer;
    answer.Parse(data + 1, static_cast<ULONG>(size - 1), "host.example", TYPES[data[0] % 7]);
    CheckAnswer(answer);
    return 0;
}
