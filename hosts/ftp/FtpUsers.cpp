// FtpUsers: who may log in.
#include "hosts/ftp/FtpUsers.h"

#include "hosts/ftp/FtpPassword.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>

namespace kqlib {

namespace {

/// How often who waits for a turn looks whether to go on.
constexpr std::chrono::milliseconds LOOK_INTERVAL(20);

class Turn;

/// The checks of this process, shared by all settings in use.
struct TURNS
{
    std::mutex mutex; // guards what follows
    std::condition_variable changed;
    std::deque<const Turn*> waiting; // first come, first served: nobody waits for ever while others come and go
    unsigned running = 0;
};

TURNS& GetTurns()
{
    static TURNS turns;
    return turns;
}

/// Holds one of the turns for a scope.
class Turn
{
public:
    /// Waits until a turn is free; IsMine() is false when goOn gave up first.
    explicit Turn(const std::function<bool()>& goOn)
    {
        TURNS& turns = GetTurns();
        std::unique_lock lock(turns.mutex);
        turns.waiting.push_back(this);
        while (!xIsNext(turns) && goOn())
            turns.changed.wait_for(lock, LOOK_INTERVAL);
        m_isMine = xIsNext(turns);
        turns.waiting.erase(std::find(turns.waiting.begin(), turns.waiting.end(), this));
        if (m_isMine)
            ++turns.running;
        turns.changed.notify_all();
    }
    ~Turn()
    {
        if (!m_isMine)
            return;
        TURNS& turns = GetTurns();
        const std::lock_guard lock(turns.mutex);
        --turns.running;
        turns.changed.notify_all();
    }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;
    bool IsMine() const { return m_isMine; }

private:
    bool xIsNext(const TURNS& turns) const
    {
        return turns.running < FtpUsers::MAX_CHECKS && turns.waiting.front() == this;
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
