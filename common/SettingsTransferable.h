// SettingsTransferable: the base of everything that is stored or transferred as settings.
#pragma once

#include "common/Messages.h"

namespace kqlib {

class SettingsTransportSet;

/// Reads and writes itself under fixed lower-case keys of a SettingsTransportSet, and checks itself.
///
/// Ownership: Spawn hands a new object to the caller. Threads: plain values, one thread at a time. Errors: WriteTo and
/// ReadFrom answer false only when something structural failed; an absent key leaves its field unchanged and is no
/// failure. CheckErrors and CheckWarnings answer true when they added no message.
/// The order of the virtual functions is part of the binary interface; new ones go last.
class KQCOMMON_API SettingsTransferable
{
public:
    virtual ~SettingsTransferable() = default;
    /// Back to the state of a default-constructed object.
    virtual void Reset() = 0;
    /// A new object of the same class, a copy when copy is true, else a default one. The caller deletes it.
    [[nodiscard]] virtual SettingsTransferable* Spawn(bool copy) const = 0;
    /// Adds all fields to the set, through xWriteTo; what the set held before stays.
    virtual bool WriteTo(SettingsTransportSet& set) const;
    /// Takes over those fields that the set holds, through xReadFrom.
    virtual bool ReadFrom(const SettingsTransportSet& set);
    /// Appends the codes of what is wrong with the values, through xCheckErrors. True: none.
    virtual bool CheckErrors(Messages& messages) const;
    /// Appends the codes of what is doubtful, through xCheckWarnings. True: none.
    virtual bool CheckWarnings(Messages& messages) const;

protected:
    /// For derived classes; there is no data.
    SettingsTransferable() = default;
    SettingsTransferable(const SettingsTransferable&) = default;
    SettingsTransferable& operator=(const SettingsTransferable&) = default;

    /// What the four operations above do in a derived class, which overrides those that it needs. These versions
    /// do nothing and answer true.
    ///@{
    virtual bool xWriteTo(SettingsTransportSet& set) const;
    virtual bool xReadFrom(const SettingsTransportSet& set);
    virtual void xCheckErrors(Messages& messages) const;
    virtual void xCheckWarnings(Messages& messages) const;
    ///@}

public:
    /// True when other is of the same class and equal.
    virtual bool IsSame(const SettingsTransferable& other) const = 0;
};

} // namespace kqlib
