#include "platform/MachineState.h"

#include "platform/Clock.h"
#include "platform/Threads.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>
#include <pwd.h>
#include <string_view>
#include <sys/statvfs.h>
#include <sys/sysinfo.h>
#include <sys/types.h>
#include <sys/utsname.h>
#include <unistd.h>

namespace kqlib::platform {

namespace {

/// Copies as much of a value as the field holds.
template <std::size_t SIZE> void Put(unsigned char (&field)[SIZE], const void* data, std::size_t size)
{
    std::memcpy(field, data, std::min(SIZE, size));
}

template <std::size_t SIZE> void PutText(unsigned char (&field)[SIZE], std::string_view text)
{
    Put(field, text.data(), std::min(text.size(), SIZE - 1));
}

void PutUserName(MachineState& out)
{
    std::array<char, 4096> buffer{};
    passwd entry{};
    passwd* found = nullptr;
    if (::getpwuid_r(::geteuid(), &entry, buffer.data(), buffer.size(), &found) == 0 && found != nullptr)
        PutText(out.userName, found->pw_name);
}

/// Seven fields of 16 bits, down to the millisecond: as plain integers the quick ones would not fit.
void PutLocalTime(MachineState& out)
{
    CalendarTime local{};
    if (!ToLocalTime(WallClockMs(), local))
        return;
    const std::array<int, 7> fields{local.year,   local.month,  local.day,        local.hour,
                                    local.minute, local.second, local.millisecond};
    std::array<std::uint16_t, fields.size()> cut{};
    std::transform(fields.begin(), fields.end(), cut.begin(),
                   [](int field) { return static_cast<std::uint16_t>(field); });
    Put(out.localTime, cut.data(), sizeof cut);
}

void PutTimeZone(MachineState& out)
{
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    if (::localtime_r(&now, &local) == nullptr)
        return;
    char text[sizeof out.timeZone] = {};
    std::snprintf(text, sizeof text, "%ld %d %s", local.tm_gmtoff, local.tm_isdst, local.tm_zone);
    PutText(out.timeZone, text);
}

void PutMemory(MachineState& out)
{
    struct sysinfo memory = {};
    if (::sysinfo(&memory) != 0)
        return;
    const std::array<unsigned long, 4> sizes{memory.totalram, memory.freeram, memory.sharedram, memory.bufferram};
    Put(out.memory, sizes.data(), sizeof sizes);
}

void PutDisk(MachineState& out)
{
    struct statvfs disk = {};
    if (::statvfs("/", &disk) != 0)
        return;
    out.diskFreeForCaller = std::uint64_t{disk.f_bavail} * disk.f_frsize;
    out.diskTotal = std::uint64_t{disk.f_blocks} * disk.f_frsize;
    out.diskFree = std::uint64_t{disk.f_bfree} * disk.f_frsize;
    out.volumes = 1;
}

} // namespace

void ReadMachineState(MachineState& out)
{
    std::memset(&out, 0, sizeof out);
    const std::array<long, 4> system{::sysconf(_SC_NPROCESSORS_CONF), ::sysconf(_SC_NPROCESSORS_ONLN),
                                     ::sysconf(_SC_PAGESIZE), ::sysconf(_SC_PHYS_PAGES)};
    Put(out.systemInfo, system.data(), sizeof system);
    utsname machine{};
    if (::uname(&machine) == 0)
        PutText(out.computerName, machine.nodename);
    PutLocalTime(out);
    PutUserName(out);
    PutTimeZone(out);
    out.processId = static_cast<std::uint32_t>(::getpid());
    out.threadId = CurrentThreadId();
    PutMemory(out);
    PutDisk(out);
}

} // namespace kqlib::platform
