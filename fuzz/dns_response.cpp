// Parsing of a whole answer. Input: one byte that chooses the type asked for, then the message.
#include "fuzz/Check.h"
#include "net/dns/NetDNSResponse.h"

#include <cstddef>
#include <cstdint>

using namespace kqlib;

namespace {

/// The codes of a failed or doubtful parse are those of the resolver.
void CheckCodes(const Messages& msgs, bool ok)
{
    KQ_FUZZ_CHECK(ok || msgs.GetMessageCount() > 0);
    for (ULONG i = 0; i < msgs.GetMessageCount(); ++i)
        KQ_FUZZ_CHECK(msgs.Get(i) >= NetDNS::MSG_NO_RECORDS && msgs.Get(i) <= NetDNS::MSG_REFUSED);
}

/// What an answer may unfold to, in bytes.
constexpr std::size_t MOST_TEXT = 65536;

void CheckSuccess(const NetDNSResponse& response, ULONG records, std::size_t textBytes)
{
    KQ_FUZZ_CHECK(textBytes <= MOST_TEXT);
    KQ_FUZZ_CHECK(!response.GetCName().empty() || records > 0);
    KQ_FUZZ_CHECK(response.GetMinimumTTL() >= 5000);
}

std::size_t TextBytes(const VectorPtr<String>& texts, const VectorPtr<NetDNS::MX_RECORD>& exchangers)
{
    std::size_t bytes = 0;
    for (ULONG i = 0; i < texts.GetCount(); ++i)
        bytes += texts.Get(i).size();
    for (ULONG i = 0; i < exchangers.GetCount(); ++i)
        bytes += exchangers.Get(i).name.size();
    return bytes;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0)
        return 0;
    constexpr NetDNS::RRTYPE TYPES[] = {NetDNS::RR_A, NetDNS::RR_PTR, NetDNS::RR_MX, NetDNS::RR_TXT, NetDNS::RR_SPF};
    const NetDNS::RRTYPE type = TYPES[data[0] % 5];
    VectorPtr<String> texts;
    VectorPtr<NetDNS::MX_RECORD> exchangers;
    NetDNSResponse response = type == NetDNS::RR_MX ? NetDNSResponse(exchangers) : NetDNSResponse(type, texts);
    Messages msgs;
    const bool ok = response.Parse(data + 1, static_cast<ULONG>(size - 1), msgs);
    CheckCodes(msgs, ok);
    if (ok)
        CheckSuccess(response, texts.GetCount() + exchangers.GetCount(), TextBytes(texts, exchangers));
    for (ULONG i = 1; i < exchangers.GetCount(); ++i)
        KQ_FUZZ_CHECK(exchangers.Get(i - 1).priority <= exchangers.Get(i).priority);
    return 0;
}
