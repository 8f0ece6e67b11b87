#include "common/SettingsTransferable.h"

namespace kqlib {

bool SettingsTransferable::WriteTo(SettingsTransportSet& set) const
{
    return xWriteTo(set);
}

bool SettingsTransferable::ReadFrom(const SettingsTransportSet& set)
{
    return xReadFrom(set);
}

bool SettingsTransferable::CheckErrors(Messages& messages) const
{
    const ULONG before = messages.GetMessageCount();
    xCheckErrors(messages);
    return messages.GetMessageCount() == before;
}

bool SettingsTransferable::CheckWarnings(Messages& messages) const
{
    const ULONG before = messages.GetMessageCount();
    xCheckWarnings(messages);
    return messages.GetMessageCount() == before;
}

bool SettingsTransferable::xWriteTo(SettingsTransportSet&) const
{
    return true;
}

bool SettingsTransferable::xReadFrom(const SettingsTransportSet&)
{
    return true;
}

void SettingsTransferable::xCheckErrors(Messages&) const {}

void SettingsTransferable::xCheckWarnings(Messages&) const {}

} // namespace kqlib
