#include "tools/kq/LogChart.h"

#include "tools/kq/LogOutput.h"
#include "tools/kq/LogReader.h"
#include "tools/kq/LogTime.h"

#include <algorithm>

namespace kq {

using namespace kqlib;

namespace {

constexpr std::size_t LABEL_WIDTH = 6; ///< as ShortNumber, right
constexpr std::size_t WIDEST_BAR = 8;
constexpr unsigned EIGHTHS = 8; ///< parts of a character that a block can fill

const char* const BLOCKS[EIGHTHS + 1] = {" ",      "\u2581", "\u2582", "\u2583", "\u2584",
                                         "\u2585", "\u2586", "\u2587", "\u2588"};

std::string TimeOf(std::uint32_t unit)
{
    TimePos time;
    DataLogEntryTime::sConvertToTimePos(unit, time);
    return LogTimeText(time);
}

/// At most count values: each the greatest of its neighbours.
std::vector<ULONG8> Squeeze(const std::vector<ULONG8>& values, std::size_t count)
{
    const std::size_t share = (values.size() + count - 1) / count;
    if (share <= 1)
        return values;
    std::vector<ULONG8> bars;
    for (std::size_t i = 0; i < values.size(); i += share) {
        const auto first = values.begin() + static_cast<std::ptrdiff_t>(i);
        const auto last = values.begin() + static_cast<std::ptrdiff_t>(std::min(i + share, values.size()));
        bars.push_back(*std::max_element(first, last));
    }
    return bars;
}

/// How much of the line row (0 is the lowest) a bar fills, in eighths. What is not nothing shows.
unsigned Filling(ULONG8 value, ULONG8 top, unsigned row, unsigned height)
{
    if (value == 0)
        return 0;
    const double parts = static_cast<double>(value) / static_cast<double>(top) * height * EIGHTHS;
    const auto whole = std::max(1U, static_cast<unsigned>(parts + 0.5));
    return std::min(EIGHTHS, whole - std::min(whole, row * EIGHTHS));
}

std::string Label(const std::string& text)
{
    return std::string(LABEL_WIDTH - std::min(LABEL_WIDTH, text.size()), ' ') + text;
}

/// How many characters a bar takes, the gap behind it included.
std::size_t BarWidth(std::size_t count, std::size_t room)
{
    return std::clamp<std::size_t>(room / count, 1, WIDEST_BAR);
}

std::string Repeat(const char* character, std::size_t count)
{
    std::string text;
    while (count-- > 0)
        text += character;
    return text;
}

std::string DrawBars(const std::vector<ULONG8>& bars, std::size_t width, ULONG8 top, const CHARTSIZE& size)
{
    const std::size_t gap = width > 1 ? 1 : 0;
    std::string text;
    for (unsigned row = size.height; row-- > 0;) {
        const bool labelled = row + 1 == size.height;
        text += Label(labelled ? ShortNumber(top) : "") + (size.ascii ? " |" : labelled ? " \u2524" : " \u2502");
        for (const ULONG8 bar : bars) {
            const unsigned filling = Filling(bar, top, row, size.height);
            text += Repeat(!size.ascii ? BLOCKS[filling] : filling > 0 ? "#" : " ", width - gap) + Repeat(" ", gap);
        }
        text.erase(text.find_last_not_of(' ') + 1);
        text += "\n";
    }
    return text;
}

} // namespace

std::string StepText(std::uint32_t seconds)
{
    constexpr std::pair<std::uint32_t, const char*> UNITS[] = {{86400, " d"}, {3600, " h"}, {60, " min"}};
    for (const auto& [length, name] : UNITS)
        if (seconds % length == 0)
            return std::to_string(seconds / length) + name;
    return std::to_string(seconds) + " s";
}

SERIES MakeSeries(const std::vector<NetSessionActivity>& periods, std::uint32_t step, NetCounterBlock::COUNTER counter)
{
    SERIES series;
    series.counter = counter;
    series.step = step;
    if (periods.empty())
        return series;
    const ULONG last = periods.back().GetTimeUnit() / step;
    const ULONG first = std::max(periods.front().GetTimeUnit() / step, last < MAX_PERIODS ? 0 : last - MAX_PERIODS + 1);
    series.start = static_cast<std::uint32_t>(first * step);
    series.values.resize(last - first + 1);
    for (const NetSessionActivity& period : periods)
        if (period.GetTimeUnit() / step >= first)
            series.values[period.GetTimeUnit() / step - first] = period.GetCounter(counter);
    return series;
}

std::string SeriesTitle(const SERIES& series)
{
    return std::string(CounterName(series.counter)) + " per " + StepText(series.step);
}

std::string DrawChart(const SERIES& series, const CHARTSIZE& size)
{
    std::string text = SeriesTitle(series) + "\n";
    if (series.values.empty())
        return text + Label("") + " nothing happened\n";
    const std::size_t room = std::max<std::size_t>(size.width, LABEL_WIDTH + 14) - LABEL_WIDTH - 2;
    const std::vector<ULONG8> bars = Squeeze(series.values, room);
    const ULONG8 top = std::max<ULONG8>(1, *std::max_element(bars.begin(), bars.end()));
    const std::size_t width = BarWidth(bars.size(), room);
    text += DrawBars(bars, width, top, size);
    text += Label("0") + (size.ascii ? " +" : " \u2514");
    text += Repeat(size.ascii ? "-" : "\u2500", bars.size() * width);
    const auto last = static_cast<std::uint32_t>(series.start + (series.values.size() - 1) * series.step);
    return text + "\n" + Label("") + "  " + TimeOf(series.start) + " to " + TimeOf(last) + " UTC\n";
}

} // namespace kq
