#include "tools/kq/LogCommand.h"

#include "tools/kq/LogChart.h"
#include "tools/kq/LogOutput.h"
#include "tools/kq/LogPage.h"
#include "tools/kq/LogReader.h"
#include "tools/kq/LogTime.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <fstream>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace kq {

using namespace kqlib;

namespace {

constexpr int EXIT_DONE = 0;
constexpr int EXIT_FAILED = 2;
constexpr std::uint32_t PAGE_PERIODS = 240; // bars of a page, when the step is ours to choose
constexpr std::uint32_t TABLE_PERIODS = 60; // and lines of a table

/// What activity is shown as, besides the forms of LOGFORMAT.
enum class VIEW
{
    TABLE,
    CSV,
    JSON,
    CHART,
    PAGE
};

struct OPTIONS
{
    LOGPLACE place;
    DataLogQuery query;
    SESSIONFILTER filter;
    unsigned long first = 0;
    unsigned long count = 0;
    VIEW view = VIEW::TABLE;
    std::uint32_t step = 0; ///< 0: ours to choose
    std::vector<std::string> counters{"ConnectionsIn", "DataInBytes", "DataOutBytes"};
    CHARTSIZE chart;
    std::string output; ///< a file; empty: the standard output
    std::string title = "Activity";
};

LOGFORMAT ToFormat(VIEW view)
{
    return view == VIEW::CSV ? LOGFORMAT::CSV : view == VIEW::JSON ? LOGFORMAT::JSON : LOGFORMAT::TABLE;
}

int Fail(const std::string& text)
{
    std::fprintf(stderr, "kq: %s\n", text.c_str());
    return EXIT_FAILED;
}

int Write(const std::string& text, const std::string& path)
{
    if (path.empty()) {
        const bool written = std::fwrite(text.data(), 1, text.size(), stdout) == text.size();
        return written && std::fflush(stdout) == 0 ? EXIT_DONE : Fail("the output cannot be written");
    }
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << text;
    file.close();
    return file ? EXIT_DONE : Fail("cannot write " + path);
}

int ShowSessions(OPTIONS& options)
{
    options.query.SetFirst(options.first);
    options.query.SetMaxCount(options.count);
    std::vector<NetSessionStatus> sessions;
    if (!ReadSessions(options.place, options.query, options.filter, sessions))
        return Fail("no session log that can be read in " + options.place.folder);
    return Write(FormatSessions(sessions, ToFormat(options.view)), options.output);
}

std::string DrawCharts(const OPTIONS& options, const std::vector<NetSessionActivity>& periods, std::uint32_t step)
{
    std::string text;
    for (const std::string& name : options.counters) {
        NetCounterBlock::COUNTER counter{};
        if (CounterByName(name, counter)) // the parse has seen to it
            text += (text.empty() ? "" : "\n") + DrawChart(MakeSeries(periods, step, counter), options.chart);
    }
    return text;
}

int ShowActivity(const OPTIONS& options)
{
    std::vector<NetSessionActivity> entries;
    if (!ReadActivity(options.place, options.query, entries))
        return Fail("no activity log that can be read in " + options.place.folder);
    const std::uint32_t most = options.view == VIEW::CHART  ? options.chart.width
                               : options.view == VIEW::PAGE ? PAGE_PERIODS
                                                            : TABLE_PERIODS;
    const std::uint32_t step = options.step != 0 ? options.step : ChooseStep(entries, most);
    const std::vector<NetSessionActivity> periods = FoldActivity(entries, step);
    switch (options.view) {
    case VIEW::CHART:
        return Write(DrawCharts(options, periods, step), options.output);
    case VIEW::PAGE:
        return Write(MakeLogPage(options.title, periods, step), options.output);
    default:
        return Write(FormatActivity(periods, ToFormat(options.view)), options.output);
    }
}

CLI::Option* AddTime(CLI::App& command, const char* name, const char* help, bool isEnd, OPTIONS& options)
{
    return command.add_option_function<std::string>(
        name,
        [isEnd, &options](const std::string& text) {
            TimePos time;
            if (!ReadLogTime(text, isEnd, time))
                throw CLI::ValidationError("no time: " + text);
            isEnd ? options.query.SetEnd(time) : options.query.SetStart(time);
        },
        help);
}

CLI::App* AddCommand(CLI::App& log, const char* name, const char* help, const std::map<std::string, VIEW>& views,
                     OPTIONS& options)
{
    CLI::App* const command = log.add_subcommand(name, help);
    command->add_option("folder", options.place.folder, "Folder of the logs")->required();
    command->add_option("--prefix", options.place.prefix, "Start of the logs' file names (default: kqftpd-)");
    AddTime(*command, "--from", "First time, UTC: 2026-11-21, \"2026-11-21 07:30\", or 90m, 2h, 7d before now", false,
            options);
    AddTime(*command, "--to", "Last time, in the same forms", true, options);
    command->add_option("--format", options.view, "What to print")->transform(CLI::Transformer(views));
    command->add_option("--output", options.output, "File to write to (default: the standard output)");
    return command;
}

void AddSessions(CLI::App& log, OPTIONS& options, int& exitCode)
{
    CLI::App* const command = AddCommand(log, "sessions", "The sessions that have ended, by their start",
                                         {{"table", VIEW::TABLE}, {"csv", VIEW::CSV}, {"json", VIEW::JSON}}, options);
    command->add_option("--user", options.filter.user, "Only sessions of this user");
    command->add_option("--address", options.filter.address, "Only sessions of the client at this address");
    command->add_option("--first", options.first, "How many to pass over (default: 0)");
    command->add_option("--count", options.count, "How many at most (default: all)");
    command->callback([&options, &exitCode] { exitCode = ShowSessions(options); });
}

void AddActivity(CLI::App& log, OPTIONS& options, int& exitCode)
{
    CLI::App* const command = AddCommand(log, "activity", "What happened over time",
                                         {{"table", VIEW::TABLE},
                                          {"csv", VIEW::CSV},
                                          {"json", VIEW::JSON},
                                          {"chart", VIEW::CHART},
                                          {"html", VIEW::PAGE}},
                                         options);
    command->add_option_function<std::string>(
        "--step",
        [&options](const std::string& text) {
            if (!ReadSpan(text, options.step))
                throw CLI::ValidationError("no length of time: " + text);
        },
        "Length of a period: 30s, 5m, 1h, 1d (default: what fits)");
    command->add_option("--counter", options.counters, "Counters of the chart")->check([](const std::string& name) {
        NetCounterBlock::COUNTER counter{};
        return CounterByName(name, counter) ? std::string() : "no counter: " + name;
    });
    command->add_option("--width", options.chart.width, "Characters in a line of the chart (default: 80)")
        ->check(CLI::Range(20U, 1000U));
    command->add_option("--height", options.chart.height, "Lines of the chart (default: 8)")
        ->check(CLI::Range(1U, 100U));
    command->add_flag("--ascii", options.chart.ascii, "Draws the chart without block characters");
    command->add_option("--title", options.title, "Title of the page (default: Activity)");
    command->callback([&options, &exitCode] { exitCode = ShowActivity(options); });
}

} // namespace

void AddLogCommand(CLI::App& app, int& exitCode)
{
    CLI::App* const log = app.add_subcommand("log", "Asks the session log and the activity log of a service");
    log->require_subcommand(1);
    // The options live as long as the parse: they are kept by the sub-command's own callback.
    const auto options = std::make_shared<OPTIONS>();
    log->parse_complete_callback([options] {});
    AddSessions(*log, *options, exitCode);
    AddActivity(*log, *options, exitCode);
}

} // namespace kq
