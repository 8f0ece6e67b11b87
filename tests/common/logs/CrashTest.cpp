#include "common/DataLogRecord.h"
#include "common/DataLogTime.h"
#include "tests/common/logs/TestEntries.h"
#include "tests/peers/TempFolder.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <set>
#include <string>

namespace kqlib::test {
namespace {

[[maybe_unused]] std::set<std::uint64_t> ReadNumbers(const std::filesystem::path& path)
{
    std::ifstream file(path);
    std::set<std::uint64_t> numbers;
    std::string line;
    // A last line that the death of the process cut in two is not ended by a LF.
    while (std::getline(file, line) && !file.eof())
        numbers.insert(std::stoull(line));
    return numbers;
}

/// The numbers in the seventh field of the event log's lines.
[[maybe_unused]] std::set<std::uint64_t> ReadEventNumbers(const std::filesystem::path& path)
{
    std::ifstream file(path);
    std::set<std::uint64_t> numbers;
    std::string line;
    while (std::getline(file, line)) {
        const auto detail = line.find("Written\t");
        if (detail != std::string::npos)
            numbers.insert(std::stoull(line.substr(detail + 8)));
    }
    return numbers;
}

class CrashTest : public ::testing::TestWithParam<int>
{
};

TEST_P(CrashTest, ProcessDiesWhileAdding_EverythingThatWasTakenIsThere)
{
#ifndef KQ_LOG_WRITER
    GTEST_SKIP() << "the writing program cannot be started here: the build is for another system";
#else
    const TempFolder folder;
    const std::string command =
        std::string("\"") + KQ_LOG_WRITER + "\" \"" + folder.GetPath().string() + "\" " + std::to_string(GetParam());
    ASSERT_EQ(std::system(command.c_str()), 0);
    const std::set<std::uint64_t> done = ReadNumbers(folder / "done");
    ASSERT_GE(done.size(), static_cast<std::size_t>(GetParam()));

    ThreadEvent cancel;
    DataLogResults results;
    Messages messages;
    DataLogRecord records;
    records.SetSettings(true, 3600, folder.GetFilePath(), "", "records");
    ASSERT_TRUE(records.Query(DataLogQuery(), cancel, NameEntry(), results, messages));
    std::multiset<std::uint64_t> stored;
    for (ULONG index = 0; index < results.GetCount(); ++index)
        stored.insert(GetAs<NameEntry>(results, index).GetNumber());
    for (const std::uint64_t number : done)
        ASSERT_EQ(stored.count(number), 1U) << number;
    // Each of the four threads may have had one entry taken without saying so.
    EXPECT_LE(stored.size(), done.size() + 4);

    DataLogTime units;
    units.SetSettings(true, 3600, folder.GetFilePath(), "", "units");
    ASSERT_TRUE(units.Query(DataLogQuery(), cancel, CountEntry(), results, messages));
    EXPECT_GE(SumCounts(results), done.size());
    EXPECT_LE(SumCounts(results), done.size() + 4);

    const std::set<std::uint64_t> printed = ReadEventNumbers(folder / "events.log");
    for (const std::uint64_t number : done)
        ASSERT_EQ(printed.count(number), 1U) << number;

    // And the logs go on.
    EXPECT_TRUE(records.AddEntry(NameEntry(1, 1), messages));
    EXPECT_TRUE(units.AddEntry(CountEntry(1, 1, 1), messages));
#endif
}

INSTANTIATE_TEST_SUITE_P(Numbers, CrashTest, ::testing::Values(1, 37, 150, 400));

} // namespace
} // namespace kqlib::test
