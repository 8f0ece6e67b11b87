#include "platform/MachineState.h"

#include "platform/windows/SystemHeaders.h"

#include <cstring>

namespace kqlib::platform {

namespace {

// The fields have the sizes of the system's own structures: checked here, once.
template <class T, std::size_t SIZE> void Put(unsigned char (&field)[SIZE], const T& value)
{
    static_assert(sizeof(value) == SIZE);
    std::memcpy(field, &value, SIZE);
}

void PutNames(MachineState& out)
{
    DWORD length = sizeof(out.userName);
    if (!GetUserNameA(reinterpret_cast<char*>(out.userName), &length))
        std::memset(out.userName, 0, sizeof(out.userName));
    length = sizeof(out.computerName);
    if (!GetComputerNameA(reinterpret_cast<char*>(out.computerName), &length))
        std::memset(out.computerName, 0, sizeof(out.computerName));
}

void PutDisk(MachineState& out)
{
    ULARGE_INTEGER freeForCaller{};
    ULARGE_INTEGER total{};
    ULARGE_INTEGER free{};
    if (GetDiskFreeSpaceExW(L"C:", &freeForCaller, &total, &free)) {
        out.diskFreeForCaller = freeForCaller.QuadPart;
        out.diskTotal = total.QuadPart;
        out.diskFree = free.QuadPart;
    }
    out.volumes = GetLogicalDrives();
}

} // namespace

void ReadMachineState(MachineState& out)
{
    std::memset(&out, 0, sizeof(out));

    SYSTEM_INFO system{};
    GetSystemInfo(&system);
    Put(out.systemInfo, system);

    SYSTEMTIME local{};
    GetLocalTime(&local);
    Put(out.localTime, local);

    TIME_ZONE_INFORMATION zone{};
    GetTimeZoneInformation(&zone);
    Put(out.timeZone, zone);

    MEMORYSTATUS memory{};
    memory.dwLength = sizeof(memory);
    GlobalMemoryStatus(&memory);
    Put(out.memory, memory);

    PutNames(out);
    out.processId = GetCurrentProcessId();
    out.threadId = GetCurrentThreadId();
    PutDisk(out);
}

} // namespace kqlib::platform
