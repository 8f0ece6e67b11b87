// FileRights: what others may do with a file, for tests.
#pragma once

#include "platform/Files.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace kqlib::test {

/// Expects that nobody but its owner may use the file; the last step of a test, which is skipped where the standard
/// library does not show the rights of others.
inline void ExpectOwnerOnly(const std::filesystem::path& path)
{
    if (platform::PathSeparator() != '/')
        GTEST_SKIP() << "the standard library shows no rights of others on this system";
    const auto others = std::filesystem::perms::group_all | std::filesystem::perms::others_all;
    EXPECT_EQ(std::filesystem::status(path).permissions() & others, std::filesystem::perms::none);
}

} // namespace kqlib::test
