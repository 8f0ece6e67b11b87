// The file form of settings. Input: the file's text.
#include "common/SettingsTransportSet.h"
#include "fuzz/Check.h"

#include <cstddef>
#include <cstdint>

using namespace kqlib;

namespace {

constexpr int MAX_DEPTH = 100;

SettingsTransportSet MakeEarlierContent()
{
    SettingsTransportSet set;
    set.AddString("text", String("\x00\xFF", 2));
    set.AddULONG("number", 4294967295U);
    set.AddSet("within")->AddBool("flag", true);
    return set;
}

/// Every item has a text and no tree is deeper than a file may hold it.
void CheckTree(const SettingsTransportSet& set, int depth)
{
    KQ_FUZZ_CHECK(depth <= MAX_DEPTH);
    String text;
    for (ULONG i = 0; i < set.GetDataCount(); ++i)
        KQ_FUZZ_CHECK(set.GetDataAsString(i, text));
    KQ_FUZZ_CHECK(!set.GetDataAsString(set.GetDataCount(), text));
    for (ULONG i = 0; i < set.GetSetCount(); ++i) {
        const SettingsTransportSet* const first = set.FindSet(set.GetSetKey(i));
        KQ_FUZZ_CHECK(first != nullptr);
        CheckTree(set.GetSet(i), depth + 1);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const SettingsTransportSet before = MakeEarlierContent();
    SettingsTransportSet set = before;
    if (!set.FromJson(String(data, size))) {
        KQ_FUZZ_CHECK(set == before);
        return 0;
    }
    CheckTree(set, 0);
    // What was read is written and read back the same.
    const String written = set.ToJson();
    SettingsTransportSet again = before;
    KQ_FUZZ_CHECK(again.FromJson(written));
    KQ_FUZZ_CHECK(again == set);
    KQ_FUZZ_CHECK(again.ToJson() == written);
    // Cut off anywhere, it is damaged: a written text ends with the bracket that closes it.
    KQ_FUZZ_CHECK(!again.FromJson(written.substr(0, size % written.size())));
    KQ_FUZZ_CHECK(again == set);
    return 0;
}
