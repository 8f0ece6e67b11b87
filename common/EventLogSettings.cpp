#include "common/EventLogSettings.h"

#include "common/SettingsTransportSet.h"

namespace kqlib {

namespace {

const char* const KEY_ENABLED = "enabled";
const char* const KEY_FOLDER = "folder";
const char* const KEY_FILE_NAME = "filename";
const char* const KEY_PRINT_DEBUG = "printdebug";
const char* const KEY_ROTATE_BYTES = "rotatebytes";
const char* const KEY_ROTATE_DAILY = "rotatedaily";
const char* const KEY_OLD_FILES = "oldfiles";
const char* const KEY_REOPEN = "reopen";

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
           m_usePrintDebug == other.m_usePrintDebug && m_rotateBytes == other.m_rotateBytes &&
           m_rotateDaily == other.m_rotateDaily && m_oldFiles == other.m_oldFiles &&
           m_reopenWhenMoved == other.m_reopenWhenMoved;
}

/// Whether rotation and reopening are set otherwise than at first.
bool EventLogSettings::xHasRotationSettings() const
{
    return m_rotateBytes != 0 || m_rotateDaily || m_oldFiles != OLD_FILES || m_reopenWhenMoved;
}

void EventLogSettings::xResetRotationSettings()
{
    m_rotateBytes = 0;
    m_rotateDaily = false;
    m_oldFiles = OLD_FILES;
    m_reopenWhenMoved = false;
}

bool EventLogSettings::xWriteTo(SettingsTransportSet& set) const
{
    set.AddBool(KEY_ENABLED, m_enabled);
    set.AddString(KEY_FOLDER, m_folder.GetText());
    set.AddString(KEY_FILE_NAME, m_fileName);
    set.AddBool(KEY_PRINT_DEBUG, m_usePrintDebug);
    if (!xHasRotationSettings())
        return true;
    set.AddULONG(KEY_ROTATE_BYTES, m_rotateBytes);
    set.AddBool(KEY_ROTATE_DAILY, m_rotateDaily);
    set.AddULONG(KEY_OLD_FILES, m_oldFiles);
    set.AddBool(KEY_REOPEN, m_reopenWhenMoved);
    return true;
}

bool EventLogSettings::xReadFrom(const SettingsTransportSet& set)
{
    // Settings that were written without rotation have none of its keys, and have to be read as such.
    if (set.GetBool(KEY_ENABLED, m_enabled))
        xResetRotationSettings();
    String folder;
    if (set.GetString(KEY_FOLDER, folder))
        m_folder = FilePath(folder);
    set.GetString(KEY_FILE_NAME, m_fileName);
    set.GetBool(KEY_PRINT_DEBUG, m_usePrintDebug);
    ULONG number = 0;
    if (set.GetULONG(KEY_ROTATE_BYTES, number))
        SetRotateBytes(number);
    set.GetBool(KEY_ROTATE_DAILY, m_rotateDaily);
    if (set.GetULONG(KEY_OLD_FILES, number))
        SetOldFiles(number);
    set.GetBool(KEY_REOPEN, m_reopenWhenMoved);
    return true;
}

} // namespace kqlib
