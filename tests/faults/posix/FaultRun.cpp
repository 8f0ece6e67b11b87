#include "tests/faults/posix/FaultRun.h"

#include "common/String.h"
#include "tests/faults/posix/FaultPlan.h"
#include "tests/peers/WaitFor.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <random>
#include <sstream>
#include <thread>
#include <utility>
#include <vector>

namespace kqlib::test {

namespace {

using KIND = FaultPlan::KIND;

constexpr const char* PLAN_VARIABLE = "KQ_FAULT_PLAN";
constexpr const char* SEED_VARIABLE = "KQ_FAULT_SEED";
/// How long a test's threads and descriptors may take to go.
constexpr unsigned LEAVE_MS = 20000;
/// WaitFor's time under the harsh plan, where many a wait is in vain.
constexpr unsigned HARSH_WAIT_MS = 3000;

std::size_t CountEntries(const char* folder)
{
    std::size_t count = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(folder))
        ++count;
    return count;
}

std::string ReadVariable(const char* name)
{
    const char* const value = std::getenv(name);
    return value != nullptr ? value : "";
}

/// What exclusions.txt says for one program and plan.
struct EXCLUSIONS
{
    std::vector<String> leftOut;
    std::vector<String> steadyClocks;

    static EXCLUSIONS sRead(const std::string& program, KIND kind)
    {
        EXCLUSIONS found;
        std::ifstream file(KQ_FAULT_EXCLUSIONS);
        for (std::string line; std::getline(file, line);) {
            std::istringstream words(line);
            std::string name;
            std::string what;
            std::string pattern;
            words >> name >> what >> pattern;
            if (name == program && what == FaultPlan::sGetName(kind))
                found.leftOut.emplace_back(pattern);
            if (name == program && what == "clocks")
                found.steadyClocks.emplace_back(pattern);
        }
        return found;
    }
};

/// Between two tests: new clocks, and a look at what the last one left.
class Watch : public testing::EmptyTestEventListener
{
public:
    explicit Watch(std::vector<String> steadyClocks)
        : m_steadyClocks(std::move(steadyClocks))
    {
    }
    bool HasLeak() const { return m_leaks != 0; }

private:
    void OnTestStart(const testing::TestInfo& info) override
    {
        const String name = String(info.test_suite_name()) + "." + info.name();
        if (std::any_of(m_steadyClocks.begin(), m_steadyClocks.end(),
                        [&name](const String& pattern) { return pattern.ApproxMatchesI(name); }))
            FaultPlan::sHoldClocks();
        else
            FaultPlan::sWrapTickSoon();
        m_before = HOLDINGS::sCount();
    }
    void OnTestEnd(const testing::TestInfo& info) override
    {
        if (m_before.IsBackTo())
            return;
        const HOLDINGS now = HOLDINGS::sCount();
        ++m_leaks;
        std::cout << info.test_suite_name() << "." << info.name() << " left " << now.descriptors << " descriptors, "
                  << now.threads << " threads; before it there were " << m_before.descriptors << " and "
                  << m_before.threads << std::endl;
    }

    const std::vector<String> m_steadyClocks;
    HOLDINGS m_before;
    unsigned m_leaks = 0;
};

/// In place of GoogleTest's own printer: the names of the tests, and which expected something else.
class Notes : public testing::EmptyTestEventListener
{
private:
    void OnTestStart(const testing::TestInfo& info) override
    {
        std::cout << info.test_suite_name() << "." << info.name() << std::flush;
    }
    void OnTestEnd(const testing::TestInfo& info) override
    {
        const bool passed = info.result()->Passed();
        m_others += passed ? 0 : 1;
        std::cout << (passed ? "" : " (came out otherwise)") << "\n";
    }
    void OnTestProgramEnd(const testing::UnitTest& tests) override
    {
        std::cout << tests.test_to_run_count() << " tests, " << m_others << " of them came out otherwise" << std::endl;
    }

    unsigned m_others = 0;
};

/// Adds patterns to what GoogleTest leaves out.
void LeaveOut(const std::vector<String>& patterns)
{
    std::string filter = GTEST_FLAG_GET(filter);
    for (const String& pattern : patterns)
        filter += (filter.find('-') == std::string::npos ? "-" : ":") + pattern.str();
    GTEST_FLAG_SET(filter, filter);
}

int RunUnderPlan(const std::string& program, KIND kind, std::uint64_t seed)
{
    auto& listeners = testing::UnitTest::GetInstance()->listeners();
    if (kind == KIND::HARSH) {
        delete listeners.Release(listeners.default_result_printer());
        listeners.Append(new Notes());
        waitForMs = HARSH_WAIT_MS;
    }
    const EXCLUSIONS exclusions = EXCLUSIONS::sRead(program, kind);
    LeaveOut(exclusions.leftOut);
    auto* const watch = new Watch(exclusions.steadyClocks);
    listeners.Append(watch);

    const std::string replay =
        std::string(PLAN_VARIABLE) + "=" + FaultPlan::sGetName(kind) + " " + SEED_VARIABLE + "=" + std::to_string(seed);
    // Also for a run that does not come to its end.
    std::cout << "faults: " << replay << " " << program << std::endl;
    FaultPlan::sStart(kind, seed);
    const int result = RUN_ALL_TESTS();
    std::cout << "faults: " << FaultPlan::sGetReport() << std::endl;
    FaultPlan::sStop();
    if ((result == 0 || kind == KIND::HARSH) && !watch->HasLeak())
        return 0;
    std::cout << "faults: failed; the same again: " << replay << " " << program << std::endl;
    return 1;
}

} // namespace

HOLDINGS HOLDINGS::sCount()
{
    return {CountEntries("/proc/self/fd"), CountEntries("/proc/self/task")};
}

bool HOLDINGS::IsBackTo() const
{
    return WaitFor(
        [this] {
            const HOLDINGS now = sCount();
            return now.descriptors <= descriptors && now.threads <= threads;
        },
        LEAVE_MS);
}

int RunTestsWithFaults(int argc, char** argv)
{
    testing::InitGoogleMock(&argc, argv);
    // A sanitizer starts a thread of its own with the program's first one, and that is no leak.
    std::thread([] {}).join();
    const std::string plan = ReadVariable(PLAN_VARIABLE);
    const std::string seedText = ReadVariable(SEED_VARIABLE);
    if (plan.empty())
        return RUN_ALL_TESTS();
    if (plan != "gentle" && plan != "harsh") {
        std::cerr << PLAN_VARIABLE << " is neither gentle nor harsh\n";
        return 2;
    }
    const std::uint64_t seed = seedText.empty() ? std::random_device()() : std::strtoull(seedText.c_str(), nullptr, 10);
    return RunUnderPlan(std::filesystem::path(argv[0]).filename().string(),
                        plan == "gentle" ? KIND::GENTLE : KIND::HARSH, seed);
}

} // namespace kqlib::test

int main(int argc, char** argv)
{
    return kqlib::test::RunTestsWithFaults(argc, argv);
}
