#include "platform/windows/LimitedRights.h"

namespace kqlib::platform {

namespace {

// The TOKEN_USER block of this process; empty on failure.
std::vector<unsigned char> GetTokenUser()
{
    HANDLE token = nullptr;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token))
        return {};
    DWORD size = 0;
    GetTokenInformation(token, TokenUser, nullptr, 0, &size);
    std::vector<unsigned char> block(size);
    if (!GetTokenInformation(token, TokenUser, block.data(), size, &size))
        block.clear();
    CloseHandle(token);
    return block;
}

} // namespace

LimitedRights::LimitedRights(FileRights rights)
    : m_valid(rights == FileRights::USUAL || xBuild(rights == FileRights::OWNER_AND_GROUP))
{
}

bool LimitedRights::xBuild(bool groupReads)
{
    m_user = GetTokenUser();
    unsigned char group[SECURITY_MAX_SID_SIZE];
    DWORD groupSize = sizeof(group);
    if (m_user.empty() || !CreateWellKnownSid(WinBuiltinAdministratorsSid, nullptr, group, &groupSize))
        return false;
    PSID const sid = reinterpret_cast<const TOKEN_USER*>(m_user.data())->User.Sid;
    m_acl.resize(sizeof(ACL) + 2 * sizeof(ACCESS_ALLOWED_ACE) + GetLengthSid(sid) + groupSize);
    auto* const acl = reinterpret_cast<ACL*>(m_acl.data());
    if (!InitializeAcl(acl, static_cast<DWORD>(m_acl.size()), ACL_REVISION) ||
        !AddAccessAllowedAce(acl, ACL_REVISION, FILE_ALL_ACCESS, sid) ||
        (groupReads && !AddAccessAllowedAce(acl, ACL_REVISION, FILE_GENERIC_READ, group)) ||
        !InitializeSecurityDescriptor(&m_descriptor, SECURITY_DESCRIPTOR_REVISION) ||
        !SetSecurityDescriptorDacl(&m_descriptor, TRUE, acl, FALSE) ||
        !SetSecurityDescriptorControl(&m_descriptor, SE_DACL_PROTECTED, SE_DACL_PROTECTED))
        return false;
    m_attributes = {sizeof(m_attributes), &m_descriptor, FALSE};
    return true;
}

} // namespace kqlib::platform
