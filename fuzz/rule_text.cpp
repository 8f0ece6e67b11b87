// The text form of an address rule. Input: the text.
#include "fuzz/Check.h"
#include "net/ipcontrol/NetIPControlEntry.h"

#include <cstddef>
#include <cstdint>

using namespace kqlib;

namespace {

/// What a text that is no rule leaves: the sign, and the first address of a mask or range.
void CheckFailure(const NetIPControlEntry& rule, const String& text)
{
    NetIPControlEntry expected;
    expected.SetAllow(text.size() < 4 || text[0] != '-');
    expected.SetIP(rule.GetIP());
    KQ_FUZZ_CHECK(rule == expected);
}

void CheckSuccess(const NetIPControlEntry& rule, const String& text)
{
    KQ_FUZZ_CHECK(rule.GetAllow() == (text[0] == '+'));
    const String written = rule.GetAsString();
    NetIPControlEntry again;
    KQ_FUZZ_CHECK(again.SetByString(written));
    KQ_FUZZ_CHECK(again == rule);
    KQ_FUZZ_CHECK(again.GetAsString() == written);
    Messages messages;
    KQ_FUZZ_CHECK(rule.CheckErrors(messages) == (messages.GetMessageCount() == 0));
    KQ_FUZZ_CHECK(messages.GetMessageCount() <= 1);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const String text(data, size);
    NetIPControlEntry rule;
    rule.SetHost("what was there before");
    if (rule.SetByString(text))
        CheckSuccess(rule, text);
    else
        CheckFailure(rule, text);
    return 0;
}
