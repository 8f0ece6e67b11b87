// FtpFile: an open file of a transfer.
#pragma once

#include "platform/Folders.h"

#include <utility>

namespace kqlib {

/// Closes its file when it goes. Ownership: owns the handle; not copyable. Threads: one at a time.
class FtpFile
{
public:
    FtpFile() = default;
    ~FtpFile() { Close(); }
    FtpFile(const FtpFile&) = delete;
    FtpFile& operator=(const FtpFile&) = delete;

    [[nodiscard]] platform::FileResult Open(const platform::RootFolder& root, const std::string& path,
                                            platform::FileMode mode, bool create)
    {
        Close();
        return root.OpenFile(path, mode, create, m_handle, m_wasMade);
    }
    void Close()
    {
        if (m_handle != platform::INVALID_FILE_HANDLE)
            platform::CloseFile(std::exchange(m_handle, platform::INVALID_FILE_HANDLE));
    }

    platform::FileHandle Get() const { return m_handle; }
    /// Whether opening made it.
    bool WasMade() const { return m_wasMade; }
    /// 0 when the system does not say.
    std::uint64_t GetSize() const
    {
        std::uint64_t size = 0;
        return platform::GetFileSize(m_handle, size) ? size : 0;
    }

private:
    platform::FileHandle m_handle = platform::INVALID_FILE_HANDLE;
    bool m_wasMade = false;
};

} // namespace kqlib
