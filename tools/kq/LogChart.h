// LogChart: activity over time as a chart of characters.
#pragma once

#include "net/status/NetSessionActivity.h"

#include <cstdint>
#include <string>
#include <vector>

namespace kq {

/// One counter over time without gaps: a value for each period, 0 where nothing happened.
struct SERIES
{
    kqlib::NetCounterBlock::COUNTER counter = kqlib::NetCounterBlock::CONNECTIONS_IN;
    std::uint32_t start = 0; ///< of the first period, seconds since 1970 UTC
    std::uint32_t step = 1;  ///< seconds
    std::vector<kqlib::ULONG8> values;
};

/// periods: as FoldActivity gives them for step, not more than MAX_PERIODS from the first to the last (the rest is cut
/// off at the front). Empty when there are none.
SERIES MakeSeries(const std::vector<kqlib::NetSessionActivity>& periods, std::uint32_t step,
                  kqlib::NetCounterBlock::COUNTER counter);

/// The most periods that a chart shows.
constexpr std::uint32_t MAX_PERIODS = 2000;

/// "DataOutBytes per 5 min".
std::string SeriesTitle(const SERIES& series);
/// A length of time in words: "1 s", "5 min", "3 h", "1 d".
std::string StepText(std::uint32_t seconds);

struct CHARTSIZE
{
    unsigned width = 80; ///< characters, axis included; at least 20
    unsigned height = 8; ///< lines of bars; at least 1
    bool ascii = false;  ///< "#" in place of block characters (UTF-8)
};

/// Title, bars with an axis, and the times of the first and the last bar. Neighbouring periods share a bar when there
/// are more than fit: the greatest of them is shown.
std::string DrawChart(const SERIES& series, const CHARTSIZE& size);

} // namespace kq
