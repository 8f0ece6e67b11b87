#include "tools/kq/LogPage.h"

#include "tools/kq/LogChart.h"
#include "tools/kq/LogOutput.h"
#include "tools/kq/LogTime.h"

#include <algorithm>
#include <cstdio>

namespace kq {

using namespace kqlib;

namespace {

using COUNTER = NetCounterBlock::COUNTER;

/// A counter of a chart: what the legend calls it, and its class in the style sheet.
struct PART
{
    COUNTER counter;
    const char* name;
    const char* style;
};

/// A chart with one or two counters side by side.
struct CHART
{
    const char* title;
    std::vector<PART> parts;
    bool bytes;
};

const std::vector<CHART>& Charts()
{
    static const std::vector<CHART> charts{
        {"Connections", {{NetCounterBlock::CONNECTIONS_IN, "accepted", "a"}}, false},
        {"Bytes",
         {{NetCounterBlock::DATA_IN_BYTES, "received", "a"}, {NetCounterBlock::DATA_OUT_BYTES, "sent", "b"}},
         true},
        {"Logins",
         {{NetCounterBlock::LOGIN_SUCCESSES, "accepted", "a"}, {NetCounterBlock::LOGIN_FAILS, "refused", "b"}},
         false},
        {"Files",
         {{NetCounterBlock::FILES_CREATED, "stored", "a"}, {NetCounterBlock::FILES_READ, "retrieved", "b"}},
         false},
        {"Commands", {{NetCounterBlock::COMMANDS_IN, "received", "a"}}, false},
    };
    return charts;
}

constexpr double WIDTH = 960; // of the drawing; the page scales it
constexpr double HEIGHT = 180;
constexpr double LEFT = 76;
constexpr double TOP = 10;
constexpr double BOTTOM = 24;

const char* const STYLE = R"(
:root{--page:#f6f7f9;--card:#fff;--ink:#1c2430;--soft:#5d6876;--line:#d9dee5;--a:#2563c9;--b:#c2570c}
@media (prefers-color-scheme:dark){
:root{--page:#12161c;--card:#1b2129;--ink:#e6eaf0;--soft:#9aa6b5;--line:#323b47;--a:#6ea8ff;--b:#f4a259}}
*{box-sizing:border-box}
body{margin:0;background:var(--page);color:var(--ink);font:15px/1.45 system-ui,sans-serif}
main{max-width:1040px;margin:0 auto;padding:20px 16px 40px}
h1{font-size:1.5rem;margin:0}h2{font-size:1.05rem;margin:0 0 6px}
p.period{color:var(--soft);margin:2px 0 18px}
section{background:var(--card);border:1px solid var(--line);border-radius:8px;padding:14px 16px;margin:0 0 16px}
dl{display:grid;grid-template-columns:repeat(auto-fit,minmax(min(200px,45%),1fr));gap:12px;margin:0}
dt{color:var(--soft);font-size:.85rem}dd{margin:0;font-size:1.35rem;font-variant-numeric:tabular-nums}
svg{display:block;width:100%;height:auto}
svg text{fill:var(--soft);font-size:12px}
.grid{stroke:var(--line)}.a{fill:var(--a)}.b{fill:var(--b)}
.legend{color:var(--soft);font-size:.85rem;margin:0 0 6px}
.legend i{display:inline-block;width:10px;height:10px;border-radius:2px;margin:0 5px 0 0}
.legend span{margin-right:14px}i.a{background:var(--a)}i.b{background:var(--b)}
.scroll{overflow-x:auto}
table{border-collapse:collapse;width:100%;font-size:.85rem;font-variant-numeric:tabular-nums}
th,td{text-align:right;padding:4px 8px;border-bottom:1px solid var(--line);white-space:nowrap}
th:first-child,td:first-child{text-align:left}summary{cursor:pointer}
@media (max-width:700px){svg{min-width:640px}svg text{font-size:17px}}
)";

std::string Escape(const std::string& text)
{
    std::string safe;
    for (const char character : text) {
        switch (character) {
        case '&':
            safe += "&amp;";
            break;
        case '<':
            safe += "&lt;";
            break;
        case '>':
            safe += "&gt;";
            break;
        case '"':
            safe += "&quot;";
            break;
        default:
            safe += character;
        }
    }
    return safe;
}

std::string Number(double value)
{
    char text[32];
    std::snprintf(text, sizeof text, "%.1f", value);
    return text;
}

std::string Value(ULONG8 value, bool bytes)
{
    return bytes ? ShortNumber(value) + (value < 1024 ? " B" : "iB") : std::to_string(value);
}

std::string TimeOf(const SERIES& series, std::size_t index)
{
    TimePos time;
    DataLogEntryTime::sConvertToTimePos(series.start + static_cast<ULONG>(index) * series.step, time);
    return LogTimeText(time);
}

/// A number with one digit that is not 0, or 2 or 5 in front, at or above value: the top of an axis.
ULONG8 RoundUp(ULONG8 value, bool bytes)
{
    const ULONG8 base = bytes ? 2 : 10;
    ULONG8 unit = 1;
    while (value / unit >= base)
        unit *= base;
    for (const ULONG8 factor : {ULONG8{1}, ULONG8{2}, ULONG8{5}})
        if (unit * factor >= value)
            return std::max<ULONG8>(1, unit * factor);
    return unit * base;
}

std::string Text(double x, double y, const char* anchor, const std::string& text)
{
    return "<text x=\"" + Number(x) + "\" y=\"" + Number(y) + "\" text-anchor=\"" + anchor + "\">" + text + "</text>\n";
}

std::string Axes(const SERIES& series, ULONG8 top, bool bytes)
{
    const double ground = HEIGHT - BOTTOM;
    std::string svg;
    for (const double share : {0.0, 0.5, 1.0}) {
        const double y = ground - (ground - TOP) * share;
        svg += "<line class=\"grid\" x1=\"" + Number(LEFT) + "\" x2=\"" + Number(WIDTH) + "\" y1=\"" + Number(y) +
               "\" y2=\"" + Number(y) + "\"/>\n";
        if (share != 0.5 || top % 2 == 0) // a half cannot be told in whole numbers
            svg += Text(LEFT - 6, y + 4, "end", Value(static_cast<ULONG8>(static_cast<double>(top) * share), bytes));
    }
    svg += Text(LEFT, HEIGHT - 6, "start", TimeOf(series, 0));
    if (series.values.size() > 2)
        svg += Text((LEFT + WIDTH) / 2, HEIGHT - 6, "middle", TimeOf(series, series.values.size() / 2));
    if (series.values.size() > 1)
        svg += Text(WIDTH, HEIGHT - 6, "end", TimeOf(series, series.values.size() - 1));
    return svg;
}

/// The bars of one counter; part of parts stand side by side in each period.
std::string Bars(const SERIES& series, const CHART& chart, std::size_t part, ULONG8 top)
{
    const double ground = HEIGHT - BOTTOM;
    const double slot = (WIDTH - LEFT) / static_cast<double>(series.values.size());
    const double width = std::min(40.0, slot * 0.9 / static_cast<double>(chart.parts.size()));
    std::string svg = "<g class=\"" + std::string(chart.parts[part].style) + "\">\n";
    for (std::size_t i = 0; i < series.values.size(); ++i) {
        const ULONG8 value = series.values[i];
        if (value == 0)
            continue;
        const double height = std::max(1.0, (ground - TOP) * static_cast<double>(value) / static_cast<double>(top));
        const double x = LEFT + slot * static_cast<double>(i) + width * static_cast<double>(part);
        svg += "<rect x=\"" + Number(x) + "\" y=\"" + Number(ground - height) + "\" width=\"" +
               Number(std::max(0.5, width)) + "\" height=\"" + Number(height) + "\"><title>" + TimeOf(series, i) +
               ": " + Value(value, chart.bytes) + " " + chart.parts[part].name + "</title></rect>\n";
    }
    return svg + "</g>\n";
}

std::string DrawSvg(const CHART& chart, const std::vector<NetSessionActivity>& periods, std::uint32_t step)
{
    std::vector<SERIES> all;
    ULONG8 greatest = 0;
    for (const PART& part : chart.parts) {
        all.push_back(MakeSeries(periods, step, part.counter));
        greatest = std::max(greatest, *std::max_element(all.back().values.begin(), all.back().values.end()));
    }
    const ULONG8 top = RoundUp(greatest, chart.bytes);
    std::string svg = "<svg viewBox=\"0 0 " + Number(WIDTH) + " " + Number(HEIGHT) + "\" role=\"img\" aria-label=\"" +
                      chart.title + "\">\n" + Axes(all.front(), top, chart.bytes);
    for (std::size_t part = 0; part < all.size(); ++part)
        svg += Bars(all[part], chart, part, top);
    return svg + "</svg>\n";
}

std::string Section(const CHART& chart, const std::vector<NetSessionActivity>& periods, std::uint32_t step)
{
    std::string html =
        "<section><h2>" + std::string(chart.title) + " per " + StepText(step) + "</h2>\n<p class=\"legend\">";
    for (const PART& part : chart.parts)
        html += "<span><i class=\"" + std::string(part.style) + "\"></i>" + part.name + "</span>";
    return html + "</p>\n<div class=\"scroll\">" + DrawSvg(chart, periods, step) + "</div></section>\n";
}

ULONG8 Sum(const std::vector<NetSessionActivity>& periods, COUNTER counter)
{
    ULONG8 sum = 0;
    for (const NetSessionActivity& period : periods)
        sum += period.GetCounter(counter);
    return sum;
}

std::string Sums(const std::vector<NetSessionActivity>& periods)
{
    std::string html = "<section><dl>\n";
    for (const CHART& chart : Charts())
        for (const PART& part : chart.parts)
            html += "<div><dt>" + std::string(chart.title) + " " + part.name + "</dt><dd>" +
                    Value(Sum(periods, part.counter), chart.bytes) + "</dd></div>\n";
    return html + "</dl></section>\n";
}

std::string Table(const std::vector<NetSessionActivity>& periods)
{
    std::string html =
        "<section><details><summary>All values</summary><div class=\"scroll\"><table>\n<tr><th>From (UTC)</th>";
    for (const CHART& chart : Charts())
        for (const PART& part : chart.parts)
            html += "<th>" + std::string(chart.title) + " " + part.name + "</th>";
    html += "</tr>\n";
    for (const NetSessionActivity& period : periods) {
        TimePos start;
        DataLogEntryTime::sConvertToTimePos(period.GetTimeUnit(), start);
        html += "<tr><td>" + LogTimeText(start) + "</td>";
        for (const CHART& chart : Charts())
            for (const PART& part : chart.parts)
                html += "<td>" + Value(period.GetCounter(part.counter), chart.bytes) + "</td>";
        html += "</tr>\n";
    }
    return html + "</table></div></details></section>\n";
}

} // namespace

std::string MakeLogPage(const std::string& title, const std::vector<NetSessionActivity>& periods, std::uint32_t step)
{
    std::string html = "<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\">\n"
                       "<meta name=\"viewport\" content=\"width=device-width,initial-scale=1\">\n"
                       "<meta name=\"color-scheme\" content=\"light dark\">\n<title>" +
                       Escape(title) + "</title>\n<style>" + STYLE + "</style></head>\n<body><main><h1>" +
                       Escape(title) + "</h1>\n";
    if (periods.empty())
        return html + "<p class=\"period\">Nothing happened in this time.</p></main></body></html>\n";
    const SERIES series = MakeSeries(periods, step, NetCounterBlock::CONNECTIONS_IN);
    html += "<p class=\"period\">" + TimeOf(series, 0) + " to " + TimeOf(series, series.values.size()) + " UTC</p>\n" +
            Sums(periods);
    for (const CHART& chart : Charts())
        html += Section(chart, periods, step);
    return html + Table(periods) + "</main></body></html>\n";
}

} // namespace kq
