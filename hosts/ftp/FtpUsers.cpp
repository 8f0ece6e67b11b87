// FtpUsers: who may log in.
#include "hosts/ftp/FtpUsers.h"

#include "hosts/ftp/FtpPassword.h"
#include "platform/Clock.h"

#include <algorithm>
#include <atomic>

namespace kqlib {

namespace {

constexpr std::uint32_t TURN_WAIT_MS = 5;

/// How many checks run in this process; shared by all settings in use.
std::atomic<unsigned> checksRunning{0};

/// Holds one of the turns for a scope.
class Turn
{
public:
    /// Waits until a turn is free; IsMine() is false when goOn gave up first.
    explicit Turn(const std::function<bool()>& goOn)
    {
        while (!(m_isMine = xTake()) && goOn())
            platform::SleepMs(TURN_WAIT_MS);
    }
    ~Turn()
    {
        if (m_isMine)
            --checksRunning;
    }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;
    bool IsMine() const { return m_isMine; }

private:
    static bool xTake()
    {
        unsigned running = checksRunning.load();
        while (running < FtpUsers::MAX_CHECKS) {
            if (checksRunning.compare_exchange_weak(running, running + 1))
                return true;
        }
        return false;
    }
    bool m_isMine = false;
};

} // namespace

FtpUsers::FtpUsers(const FtpSettings::USERS& users)
    : m_users(users)
{
    // The decoy costs what the first real password costs; its own password is nobody's.
    const auto real = std::find_if(users.begin(), users.end(),
                                   [](const FtpUserSettings& user) { return !user.GetPassword().empty(); });
    if (real == users.end()) {
        m_decoy = FtpPassword::sHash(String());
        return;
    }
    m_decoy = real->GetPassword();
    char& digit = m_decoy[m_decoy.size() - 1];
    digit = digit == '0' ? '1' : '0';
}

bool FtpUsers::IsAnonymous(const String& name) const
{
    const FtpUserSettings* user = xFind(name);
    return user != nullptr && user->GetIsAnonymous();
}

const FtpUserSettings* FtpUsers::LogIn(const String& name, const String& password,
                                       const std::function<bool()>& goOn) const
{
    const FtpUserSettings* user = xFind(name);
    if (user != nullptr && user->GetIsAnonymous())
        return user;
    const Turn turn(goOn);
    if (!turn.IsMine())
        return nullptr;
    const bool fits = FtpPassword::sVerify(password, user == nullptr ? m_decoy : user->GetPassword());
    return fits ? user : nullptr; // null as well should the decoy ever fit
}

const FtpUserSettings* FtpUsers::xFind(const String& name) const
{
    const auto found = std::find_if(m_users.begin(), m_users.end(),
                                    [&name](const FtpUserSettings& user) { return user.GetName() == name; });
    return found == m_users.end() ? nullptr : &*found;
}

} // namespace kqlib
