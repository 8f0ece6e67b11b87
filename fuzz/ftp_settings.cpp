// The settings file of kqftpd. Input: the file's text.
#include "common/SettingsTransportSet.h"
#include "fuzz/Check.h"
#include "hosts/ftp/FtpSettings.h"

#include <cstddef>
#include <cstdint>

using namespace kqlib;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    FtpSettings before;
    before.SetGreeting("what was there before");
    before.SetMaxSessions(7);
    FtpSettings settings = before;
    String error;
    if (!settings.ReadJson(String(data, size), error)) {
        KQ_FUZZ_CHECK(!error.empty());
        KQ_FUZZ_CHECK(settings == before);
        return 0;
    }
    // What was taken is without fault, whole, and keeps itself in the libraries' own form.
    Messages messages;
    KQ_FUZZ_CHECK(settings.CheckErrors(messages));
    KQ_FUZZ_CHECK(!(settings == before));
    USHORT first = 0;
    USHORT last = 0;
    KQ_FUZZ_CHECK(settings.GetPassiveRange(first, last) && first <= last);
    for (const FtpUserSettings& user : settings.GetUsers())
        KQ_FUZZ_CHECK(!user.GetName().empty() && (user.GetRights().empty() || user.GetRightBits() != 0));
    SettingsTransportSet written;
    KQ_FUZZ_CHECK(settings.WriteTo(written));
    SettingsTransportSet copy;
    KQ_FUZZ_CHECK(copy.FromJson(written.ToJson()));
    FtpSettings again;
    KQ_FUZZ_CHECK(again.ReadFrom(copy));
    KQ_FUZZ_CHECK(again == settings);
    return 0;
}
