// TempFolder: a folder of its own for one test, removed with everything in it.
#pragma once

#include "common/FilePath.h"

#include <filesystem>
#include <random>
#include <string>
#include <system_error>

namespace kqlib::test {

class TempFolder
{
public:
    TempFolder()
    {
        std::random_device random;
        do
            m_path = std::filesystem::temp_directory_path() / ("kqtest-" + std::to_string(random()));
        while (!std::filesystem::create_directory(m_path));
    }
    ~TempFolder()
    {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    const std::filesystem::path& GetPath() const { return m_path; }
    FilePath GetFilePath() const { return FilePath(m_path.string().c_str()); }
    /// The path of a file or folder in it.
    std::filesystem::path operator/(const std::string& name) const { return m_path / name; }

private:
    std::filesystem::path m_path;
};

} // namespace kqlib::test
