#include "platform/Processes.h"

#include <cerrno>
#include <csignal>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace kqlib::platform {

namespace {

bool MakeExecutableByOwner(const char* path)
{
    struct stat status = {};
    return ::stat(path, &status) == 0 && ::chmod(path, status.st_mode | S_IXUSR) == 0;
}

/// How the program starts: with no signal blocked and none ignored, whatever this process has made of its own.
class SpawnAttributes
{
public:
    SpawnAttributes()
    {
        sigset_t none;
        sigset_t all;
        ::sigemptyset(&none);
        ::sigfillset(&all);
        ::posix_spawnattr_init(&m_attributes);
        ::posix_spawnattr_setsigmask(&m_attributes, &none);
        ::posix_spawnattr_setsigdefault(&m_attributes, &all);
        ::posix_spawnattr_setflags(&m_attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    }
    ~SpawnAttributes() { ::posix_spawnattr_destroy(&m_attributes); }
    SpawnAttributes(const SpawnAttributes&) = delete;
    SpawnAttributes& operator=(const SpawnAttributes&) = delete;

    const posix_spawnattr_t* Get() const { return &m_attributes; }

private:
    posix_spawnattr_t m_attributes = {};
};

} // namespace

// A child in between starts the program and ends at once, so that the program belongs to the system's first process:
// this process gets no child to wait for, whatever it does with SIGCHLD.
bool OpenWithShell(HWND, const char* path)
{
    if (!MakeExecutableByOwner(path))
        return false;
    const SpawnAttributes attributes;
    const pid_t between = ::fork();
    if (between < 0)
        return false;
    if (between == 0) {
        ::setsid();
        char* const argv[] = {const_cast<char*>(path), nullptr};
        pid_t program = 0;
        ::_exit(::posix_spawn(&program, path, nullptr, attributes.Get(), argv, environ) == 0 ? 0 : 1);
    }
    int status = 0;
    while (::waitpid(between, &status, 0) < 0)
        if (errno != EINTR)
            return true; // somebody else waited for it: whether it worked is not known
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

} // namespace kqlib::platform
