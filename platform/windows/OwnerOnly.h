// Access rights for files that only their owner may read and write.
#pragma once

#include "platform/windows/SystemHeaders.h"

#include <vector>

namespace kqlib::platform {

/// A security descriptor that gives the user of this process all rights to a new file, and nobody else any.
class OwnerOnly
{
public:
    OwnerOnly();
    OwnerOnly(const OwnerOnly&) = delete;
    OwnerOnly& operator=(const OwnerOnly&) = delete;

    /// What CreateFileW takes, valid as long as this object; null when the rights could not be put together.
    SECURITY_ATTRIBUTES* GetAttributes();

private:
    bool xBuild();

    std::vector<unsigned char> m_user; ///< TOKEN_USER with the SID that it points at
    std::vector<unsigned char> m_acl;
    SECURITY_DESCRIPTOR m_descriptor{};
    SECURITY_ATTRIBUTES m_attributes{};
    bool m_valid;
};

} // namespace kqlib::platform
