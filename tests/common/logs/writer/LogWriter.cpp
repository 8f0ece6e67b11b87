// A program that adds to two data logs and an event log until it drops dead, for the tests of what is left then.
//
// kqtest_log_writer <folder> <numbers>: four threads add; each number goes to the file "done" after the logs have taken
// it. When so many have, the process ends in the middle of whatever its threads do: no destructor runs, nothing is
// flushed or closed, just as if it had been killed from outside.

#include "common/DataLogRecord.h"
#include "common/DataLogTime.h"
#include "common/EventLog.h"
#include "tests/common/logs/TestEntries.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <thread>
#include <vector>

using namespace kqlib;

namespace {

constexpr int THREADS = 4;

struct Logs
{
    DataLogRecord records;
    DataLogTime units;
    EventLog events;
    std::FILE* done = nullptr;
    std::mutex doneMutex;
    std::atomic<int> taken = 0;
};

void Write(Logs& logs, int thread)
{
    for (std::uint64_t number = static_cast<std::uint64_t>(thread) + 1;; number += THREADS) {
        Messages messages;
        const test::NameEntry record(static_cast<SLONG8>(number), number);
        const test::CountEntry unit(static_cast<ULONG>(1 + number % 10), 1, 1);
        if (!logs.records.AddEntry(record, messages) || !logs.units.AddEntry(unit, messages))
            std::_Exit(2);
        logs.events.PrintServiceNormal("Written", String::sToString(static_cast<ULONG8>(number)), "");
        const std::lock_guard lock(logs.doneMutex);
        std::fprintf(logs.done, "%llu\n", static_cast<unsigned long long>(number));
        std::fflush(logs.done);
        ++logs.taken;
    }
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3)
        return 1;
    const FilePath folder(argv[1]);
    Logs logs;
    logs.records.SetSettings(true, 3600, folder, "", "records");
    logs.units.SetSettings(true, 3600, folder, "", "units");
    EventLogSettings settings;
    settings.SetEnabled(true);
    settings.SetFolder(folder);
    settings.SetFileName("events.log");
    logs.events.SetSettings(settings);
    logs.done = std::fopen((folder.GetText() + "/done").c_str(), "wb");
    if (!logs.done)
        return 1;

    std::vector<std::thread> threads;
    for (int thread = 0; thread < THREADS; ++thread)
        threads.emplace_back([&logs, thread] { Write(logs, thread); });
    while (logs.taken < std::atoi(argv[2]))
        std::this_thread::sleep_for(std::chrono::microseconds(100));
    std::_Exit(0);
}
