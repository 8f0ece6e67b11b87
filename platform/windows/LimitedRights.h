// Access rights for new files that not everybody may use.
#pragma once

#include "platform/Files.h"
#include "platform/windows/SystemHeaders.h"

#include <vector>

namespace kqlib::platform {

/// A security descriptor that gives the user of this process all rights to a new file, the machine's administrators
/// those to read it where the group may, and nobody else any.
class LimitedRights
{
public:
    explicit LimitedRights(FileRights rights);
    LimitedRights(const LimitedRights&) = delete;
    LimitedRights& operator=(const LimitedRights&) = delete;

    /// False: the rights could not be put together; a file must not be made.
    bool IsValid() const { return m_valid; }
    /// What CreateFileW takes, valid as long as this object; null for the usual rights.
    SECURITY_ATTRIBUTES* GetAttributes() { return m_acl.empty() ? nullptr : &m_attributes; }

private:
    bool xBuild(bool groupReads);

    std::vector<unsigned char> m_user; ///< TOKEN_USER with the SID that it points at
    std::vector<unsigned char> m_acl;  ///< empty: the usual rights
    SECURITY_DESCRIPTOR m_descriptor{};
    SECURITY_ATTRIBUTES m_attributes{};
    bool m_valid;
};

} // namespace kqlib::platform
