// EventLogSettings: where and how much an event log writes.
#pragma once

#include "common/FilePath.h"
#include "common/SettingsTransferable.h"

#include <algorithm>
#include <cstdint>

namespace kqlib {

/// Settings keys: "enabled" (Bool), "folder" (String), "filename" (String), "printdebug" (Bool); and, written only when
/// one of them is not as at first, "rotatebytes" (ULONG), "rotatedaily" (Bool), "oldfiles" (ULONG), "reopen" (Bool).
/// Where "enabled" is there and one of those is not, it is read as it is at first. Other keys that are not there leave
/// their fields unchanged.
/// Default: disabled, empty texts, no debug lines, one file that grows and stays in use wherever it is moved.
///
/// Rotation gives the file the name `<file name>.1`, that one `<file name>.2` and so on, and begins a new file. It
/// happens before a line is written, never within one. If several processes write to one file, only one of them may
/// rotate it, and the others should have SetReopenWhenMoved.
class KQCOMMON_API EventLogSettings : public SettingsTransferable
{
public:
    /// Old files kept at first, once there is a rotation.
    static constexpr ULONG OLD_FILES = 10;

    /// The default.
    EventLogSettings() = default;
    EventLogSettings(const EventLogSettings&) = default;
    EventLogSettings& operator=(const EventLogSettings&) = default;

    /// Whether lines are written at all.
    ///@{
    bool GetEnabled() const { return m_enabled; }
    void SetEnabled(bool enabled) { m_enabled = enabled; }
    ///@}
    /// Folder of the file, empty for the current one.
    ///@{
    const FilePath& GetFolder() const { return m_folder; }
    void SetFolder(const FilePath& folder) { m_folder = folder; }
    ///@}
    /// Name of the file; an empty one cannot be opened.
    ///@{
    const String& GetFileName() const { return m_fileName; }
    void SetFileName(const String& name) { m_fileName = name; }
    ///@}
    /// Whether debug lines are written too.
    ///@{
    bool GetUsePrintDebug() const { return m_usePrintDebug; }
    void SetUsePrintDebug(bool use) { m_usePrintDebug = use; }
    ///@}

    /// The size in bytes that a line must not take the file beyond: the file is rotated before it. A longer line has a
    /// file of its own. Below 2^32; 0 = however large.
    ///@{
    ULONG GetRotateBytes() const { return m_rotateBytes; }
    void SetRotateBytes(ULONG bytes) { m_rotateBytes = static_cast<std::uint32_t>(std::min(bytes, ALL_BITS_32)); }
    ///@}
    /// Whether the first line of a new day, in local time, rotates a file that was last written before.
    ///@{
    bool GetRotateDaily() const { return m_rotateDaily; }
    void SetRotateDaily(bool daily) { m_rotateDaily = daily; }
    ///@}
    /// How many old files rotation keeps, below 2^32; older ones are deleted. 0: the file itself is emptied.
    ///@{
    ULONG GetOldFiles() const { return m_oldFiles; }
    void SetOldFiles(ULONG count) { m_oldFiles = static_cast<std::uint32_t>(std::min(count, ALL_BITS_32)); }
    ///@}
    /// Whether each line looks first if the file was moved or deleted, and begins a new one under its name then (on
    /// Windows the name of a deleted file is there until the log lets it go: move it instead). It costs two questions
    /// to the system; a host that calls EventLog::Reopen after moving the file needs it not.
    ///@{
    bool GetReopenWhenMoved() const { return m_reopenWhenMoved; }
    void SetReopenWhenMoved(bool reopen) { m_reopenWhenMoved = reopen; }
    ///@}

    void Reset() override;
    [[nodiscard]] SettingsTransferable* Spawn(bool copy) const override;
    bool IsSame(const SettingsTransferable& other) const override;
    /// All fields are equal.
    ///@{
    bool IsSame(const EventLogSettings& other) const;
    friend bool operator==(const EventLogSettings& left, const EventLogSettings& right) { return left.IsSame(right); }
    ///@}

protected:
    bool xWriteTo(SettingsTransportSet& set) const override;
    bool xReadFrom(const SettingsTransportSet& set) override;

private:
    bool xHasRotationSettings() const;
    void xResetRotationSettings();

    bool m_enabled = false;
    FilePath m_folder;
    String m_fileName;
    bool m_usePrintDebug = false;
    bool m_rotateDaily = false;
    bool m_reopenWhenMoved = false;
    std::uint32_t m_rotateBytes = 0;
    std::uint32_t m_oldFiles = OLD_FILES;
};

} // namespace kqlib
