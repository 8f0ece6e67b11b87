// LogPage: activity over time as one HTML page that needs nothing else.
#pragma once

#include "net/status/NetSessionActivity.h"

#include <cstdint>
#include <string>
#include <vector>

namespace kq {

/// The whole page, UTF-8: sums, a bar chart (SVG) for each group of counters, and a table of the values. It holds no
/// script, loads nothing, follows the reader's choice of light or dark and fits small windows. periods and step: as
/// MakeSeries.
std::string MakeLogPage(const std::string& title, const std::vector<kqlib::NetSessionActivity>& periods,
                        std::uint32_t step);

} // namespace kq
