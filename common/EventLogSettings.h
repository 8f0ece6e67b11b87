// EventLogSettings: where and how much an event log writes.
#pragma once

#include "common/FilePath.h"
#include "common/SettingsTransferable.h"

namespace kqlib {

/// Settings keys: "enabled" (Bool), "folder" (String), "filename" (String), "printdebug" (Bool). Default: disabled,
/// empty texts, no debug lines.
class KQCOMMON_API EventLogSettings : public SettingsTransferable
{
public:
    /// Disabled, empty texts, no debug lines.
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

    void Reset() override;
    [[nodiscard]] SettingsTransferable* Spawn(bool copy) const override;
    bool IsSame(const SettingsTransferable& other) const override;
    /// All four fields are equal.
    ///@{
    bool IsSame(const EventLogSettings& other) const;
    friend bool operator==(const EventLogSettings& left, const EventLogSettings& right) { return left.IsSame(right); }
    ///@}

protected:
    bool xWriteTo(SettingsTransportSet& set) const override;
    bool xReadFrom(const SettingsTransportSet& set) override;

private:
    bool m_enabled = false;
    FilePath m_folder;
    String m_fileName;
    bool m_usePrintDebug = false;
};

} // namespace kqlib
