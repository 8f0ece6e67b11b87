// The handle of a window, where the system has windows of that kind.
#pragma once

#if defined(_WIN32)
struct HWND__;
namespace kqlib {
/// The system's own window handle.
using HWND = ::HWND__*;
} // namespace kqlib
#else
namespace kqlib {
/// No such thing here: pass null.
using HWND = void*;
} // namespace kqlib
#endif
