// Everything in the libraries that reads itself from settings. Input: the text of a settings file.
#include "common/EventLogSettings.h"
#include "common/SettingsTransportSet.h"
#include "fuzz/Check.h"
#include "net/ipcontrol/NetIPControl.h"
#include "net/ports/NetPortBinds.h"
#include "net/ssl/NetSSLCertCreate.h"
#include "net/status/NetServiceLiveStatus.h"
#include "net/status/NetServiceStatus.h"
#include "net/status/NetSessionActivity.h"
#include "net/status/NetSessionLiveStatus.h"
#include "net/status/NetSessionStatus.h"

#include <cstddef>
#include <cstdint>
#include <memory>

using namespace kqlib;

namespace {

/// What an object has taken over from settings, of whatever kind, it writes and reads back the same.
template <class T> void CheckObject(const SettingsTransportSet& set)
{
    T object;
    const bool read = object.ReadFrom(set);
    SettingsTransportSet written;
    KQ_FUZZ_CHECK(object.WriteTo(written));
    T again;
    KQ_FUZZ_CHECK(again.ReadFrom(written));
    KQ_FUZZ_CHECK(again == object);
    SettingsTransportSet rewritten;
    KQ_FUZZ_CHECK(again.WriteTo(rewritten));
    KQ_FUZZ_CHECK(rewritten == written);

    const std::unique_ptr<SettingsTransferable> copy(object.Spawn(true));
    KQ_FUZZ_CHECK(copy->IsSame(object));
    Messages messages;
    KQ_FUZZ_CHECK(object.CheckErrors(messages) == (messages.GetMessageCount() == 0));
    Messages warnings;
    KQ_FUZZ_CHECK(object.CheckWarnings(warnings) == (warnings.GetMessageCount() == 0));

    // Settings that were refused have changed nothing.
    object.Reset();
    KQ_FUZZ_CHECK(read || copy->IsSame(object));
}

/// The bindings, one after the other; a key that is missing keeps what the binding before had, kept on purpose.
void CheckBinds(const SettingsTransportSet& set)
{
    NetPortBinds expected;
    USHORT port = 0;
    String host;
    for (ULONG i = 0; i < set.GetSetCount(); ++i) {
        set.GetSet(i).GetUSHORT("port", port);
        set.GetSet(i).GetString("host", host);
        expected.Add(NetPortBind(port, host));
    }
    NetPortBinds binds;
    KQ_FUZZ_CHECK(binds.ReadFrom(set));
    KQ_FUZZ_CHECK(binds == expected);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    SettingsTransportSet set;
    if (!set.FromJson(String(data, size)))
        return 0;
    CheckObject<EventLogSettings>(set);
    CheckObject<NetIPControl>(set);
    CheckObject<NetIPControlEntry>(set);
    CheckObject<NetPortBind>(set);
    CheckObject<NetPortBinds>(set);
    CheckObject<NetServiceLiveStatus>(set);
    CheckObject<NetServiceStatus>(set);
    CheckObject<NetSessionActivity>(set);
    CheckObject<NetSessionLiveStatus>(set);
    CheckObject<NetSessionStatus>(set);
    CheckObject<NetSSLCertCreate>(set);
    CheckBinds(set);
    return 0;
}
