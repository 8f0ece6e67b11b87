// FtpUsers: who may log in.
#pragma once

#include "hosts/ftp/FtpSettings.h"

#include <functional>

namespace kqlib {

/// The accounts of one set of settings, and the check of a password against them.
///
/// An unknown name costs as much time as a wrong password and gives the same answer, so that a peer learns no names. At
/// most MAX_CHECKS passwords are checked at a time (each takes 16 MiB of memory); the others wait their turn.
///
/// Ownership: owns a copy of the accounts. Threads: any thread. Errors: by result.
class FtpUsers
{
public:
    static constexpr unsigned MAX_CHECKS = 4;

    explicit FtpUsers(const FtpSettings::USERS& users);

    /// True for the name of an account that takes any password.
    bool IsAnonymous(const String& name) const;
    /// The account when the password fits, else null. The account lives as long as this object. goOn is asked every few
    /// milliseconds while the check waits for its turn; false gives up.
    const FtpUserSettings* LogIn(const String& name, const String& password, const std::function<bool()>& goOn) const;

private:
    const FtpUserSettings* xFind(const String& name) const;

    FtpSettings::USERS m_users; // set once
    String m_decoy;             // set once: checked in the place of an unknown account's password
};

} // namespace kqlib
