// A snapshot of the machine's state, to be mixed into a random generator. Not a source of secrets by itself.
// Inside the library only.
#pragma once

#include "platform/Export.h"

#include <cstdint>

namespace kqlib::platform {

/// What can be read cheaply and differs between machines and moments. The sizes are those of the 32-bit Windows
/// structures that hold the same facts; elsewhere the fields hold the system's own data of that kind, cut or padded
/// with zeros.
struct MachineState
{
    unsigned char systemInfo[36];   ///< processors, page size
    unsigned char localTime[16];    ///< calendar fields of the local time
    unsigned char userName[257];    ///< zero-terminated
    unsigned char computerName[16]; ///< zero-terminated
    unsigned char timeZone[172];    ///< rules and names of the time zone
    std::uint32_t processId;
    std::uint32_t threadId;
    unsigned char memory[32];        ///< sizes and use of memory
    std::uint64_t diskFreeForCaller; ///< bytes of the system's volume
    std::uint64_t diskTotal;
    std::uint64_t diskFree;
    std::uint32_t volumes; ///< one bit per volume where volumes are lettered, else their number
};

/// Fills every field; what cannot be read stays zero. Any thread.
KQCOMMON_API void ReadMachineState(MachineState& out);

} // namespace kqlib::platform
