#include "common/EventLogSettings.h"

#include "common/SettingsTransportSet.h"

namespace kqlib {

namespace {

const char* const KEY_ENABLED = "enabled";
const char* const KEY_FOLDER = "folder";
const char* const KEY_FILE_NAME = "filename";
const char* const KEY_PRINT_DEBUG = "printdebug";

} // namespace

void EventLogSettings::Reset()
{
    *this = EventLogSettings();
}

SettingsTransferable* EventLogSettings::Spawn(bool copy) const
{
    return copy ? new EventLogSettings(*this) : new EventLogSettings();
}

bool EventLogSettings::IsSame(const SettingsTransferable& other) const
{
    const auto* settings = dynamic_cast<const EventLogSettings*>(&other);
    return settings && IsSame(*settings);
}

bool EventLogSettings::IsSame(const EventLogSettings& other) const
{
    return m_enabled == other.m_enabled && m_folder == other.m_folder && m_fileName == other.m_fileName &&
           m_usePrintDebug == other.m_usePrintDebug;
}

bool EventLogSettings::xWriteTo(SettingsTransportSet& set) const
{
    set.AddBool(KEY_ENABLED, m_enabled);
    set.AddString(KEY_FOLDER, m_folder.GetText());
    set.AddString(KEY_FILE_NAME, m_fileName);
    set.AddBool(KEY_PRINT_DEBUG, m_usePrintDebug);
    return true;
}

bool EventLogSettings::xReadFrom(const SettingsTransportSet& set)
{
    set.GetBool(KEY_ENABLED, m_enabled);
    String folder;
    if (set.GetString(KEY_FOLDER, folder))
        m_folder = FilePath(folder);
    set.GetString(KEY_FILE_NAME, m_fileName);
    set.GetBool(KEY_PRINT_DEBUG, m_usePrintDebug);
    return true;
}

} // namespace kqlib
