// The handle of an open file of the system.
#pragma once

#include <cstdint>

namespace kqlib::platform {

/// An open file. Not inherited by child processes.
using FileHandle = std::intptr_t;
inline constexpr FileHandle INVALID_FILE_HANDLE = -1;

} // namespace kqlib::platform
