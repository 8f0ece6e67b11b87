// The settings form of a rule list, from its file. Input: the file's text.
#include "common/SettingsTransportSet.h"
#include "fuzz/Check.h"
#include "net/ipcontrol/NetIPControl.h"

#include <cstddef>
#include <cstdint>

using namespace kqlib;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    SettingsTransportSet set;
    if (!set.FromJson(String(data, size)))
        return 0;
    NetIPControl rules;
    KQ_FUZZ_CHECK(rules.ReadFrom(set));
    KQ_FUZZ_CHECK(rules.GetCount() <= set.GetDataCount());
    // What was read is written and read back the same, through the file form too.
    SettingsTransportSet written;
    KQ_FUZZ_CHECK(rules.WriteTo(written));
    KQ_FUZZ_CHECK(written.GetDataCount() == rules.GetCount());
    SettingsTransportSet copy;
    KQ_FUZZ_CHECK(copy.FromJson(written.ToJson()));
    NetIPControl again;
    KQ_FUZZ_CHECK(again.ReadFrom(copy));
    KQ_FUZZ_CHECK(again == rules);
    // Reading appends.
    KQ_FUZZ_CHECK(again.ReadFrom(copy));
    KQ_FUZZ_CHECK(again.GetCount() == 2 * rules.GetCount());
    // A rule by itself takes any text under its key.
    NetIPControlEntry entry;
    KQ_FUZZ_CHECK(entry.ReadFrom(set));
    return 0;
}
