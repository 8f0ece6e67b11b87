// The calls of the system's native layer that work relative to an open folder, which the layer above lacks.
#pragma once

#include "platform/windows/SystemHeaders.h"

#include "platform/Folders.h"

#include <winternl.h>

#include <string>
#include <utility>

namespace kqlib::platform {

/// Owns one handle.
class NativeHandle
{
public:
    explicit NativeHandle(HANDLE handle = INVALID_HANDLE_VALUE)
        : m_handle(handle)
    {
    }
    NativeHandle(NativeHandle&& other) noexcept
        : m_handle(other.Release())
    {
    }
    NativeHandle& operator=(NativeHandle&& other) noexcept
    {
        std::swap(m_handle, other.m_handle);
        return *this;
    }
    NativeHandle(const NativeHandle&) = delete;
    NativeHandle& operator=(const NativeHandle&) = delete;
    ~NativeHandle()
    {
        if (IsOpen())
            CloseHandle(m_handle);
    }

    HANDLE Get() const { return m_handle; }
    HANDLE Release() { return std::exchange(m_handle, INVALID_HANDLE_VALUE); }
    bool IsOpen() const { return m_handle != INVALID_HANDLE_VALUE; }

private:
    HANDLE m_handle;
};

/// What to open beneath a folder, and how. A link is always opened as itself.
struct RELATIVE_OPEN
{
    ACCESS_MASK access = 0;
    ULONG disposition = FILE_OPEN;
    ULONG options = 0; ///< FILE_DIRECTORY_FILE, FILE_NON_DIRECTORY_FILE or neither
};

/// Opens one name of an open folder. made: whether it was made by this call.
FileResult OpenRelative(HANDLE folder, const std::string& name, const RELATIVE_OPEN& how, NativeHandle& out,
                        bool* made = nullptr);

/// Opens an open folder again with other rights.
FileResult Reopen(HANDLE folder, ACCESS_MASK access, NativeHandle& out);

/// Gives what is open here (with the right DELETE) a name in another open folder of the same volume.
FileResult RenameRelative(HANDLE handle, HANDLE folder, const std::string& name, bool replace);

/// Removes what is open here (with the right DELETE) once the handle is closed.
FileResult MarkForRemoval(HANDLE handle);

/// What an error of the system means for the verbs on files.
FileResult FromSystemError(DWORD error);

} // namespace kqlib::platform
