// FtpUploads: which files are being uploaded to.
#pragma once

#include "platform/Folders.h"

#include <cstdint>
#include <mutex>
#include <optional>
#include <set>
#include <utility>

namespace kqlib {

/// Sees to it that no two uploads write into one file, whatever names and links they found it by. One object serves all
/// sessions of a service; a session uses it through FtpUploadClaim.
///
/// Ownership: none. Threads: any thread. Errors: by result.
class FtpUploads
{
public:
    /// What tells a file from every other: its volume and its serial.
    using FILE_ID = std::pair<std::uint64_t, std::uint64_t>;

    /// False: an upload writes into it already.
    [[nodiscard]] bool Begin(const FILE_ID& file)
    {
        const std::lock_guard lock(m_mutex);
        return m_files.insert(file).second;
    }
    void End(const FILE_ID& file)
    {
        const std::lock_guard lock(m_mutex);
        m_files.erase(file);
    }

private:
    std::mutex m_mutex;
    std::set<FILE_ID> m_files; // guarded by m_mutex
};

/// One upload's hold on its file, for a scope. Ownership: borrows the uploads. Threads: one at a time.
class FtpUploadClaim
{
public:
    explicit FtpUploadClaim(FtpUploads& uploads)
        : m_uploads(uploads)
    {
    }
    ~FtpUploadClaim() { Release(); }
    FtpUploadClaim(const FtpUploadClaim&) = delete;
    FtpUploadClaim& operator=(const FtpUploadClaim&) = delete;

    /// Once. False: somebody else has it.
    [[nodiscard]] bool Take(const platform::FileFacts& file)
    {
        const FtpUploads::FILE_ID id(file.volume, file.serial);
        if (m_uploads.Begin(id))
            m_file = id;
        return m_file.has_value();
    }
    void Release()
    {
        if (m_file)
            m_uploads.End(*m_file);
        m_file.reset();
    }

private:
    FtpUploads& m_uploads;
    std::optional<FtpUploads::FILE_ID> m_file;
};

} // namespace kqlib
