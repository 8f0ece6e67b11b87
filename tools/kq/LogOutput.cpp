#include "tools/kq/LogOutput.h"

#include "tools/kq/LogReader.h"
#include "tools/kq/LogTime.h"
#include "tools/kq/MessageTexts.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdio>
#include <span>
#include <utility>

namespace kq {

using namespace kqlib;

namespace {

using COUNTER = NetCounterBlock::COUNTER;
using LINE = std::vector<std::string>;

/// A column of the activity table: its heading and the counter that it shows.
struct COLUMN
{
    const char* heading;
    COUNTER counter;
};

constexpr COLUMN ACTIVITY_COLUMNS[] = {
    {"Now", NetCounterBlock::CURRENT_CONNECTIONS_IN},
    {"Connections", NetCounterBlock::CONNECTIONS_IN},
    {"Logins", NetCounterBlock::LOGIN_SUCCESSES},
    {"Failed", NetCounterBlock::LOGIN_FAILS},
    {"Commands", NetCounterBlock::COMMANDS_IN},
    {"In", NetCounterBlock::DATA_IN_BYTES},
    {"Out", NetCounterBlock::DATA_OUT_BYTES},
    {"Stored", NetCounterBlock::FILES_CREATED},
    {"Read", NetCounterBlock::FILES_READ},
    {"Listings", NetCounterBlock::DIRS_READ},
};

constexpr COLUMN SESSION_COLUMNS[] = {
    {"Commands", NetCounterBlock::COMMANDS_IN},      {"In", NetCounterBlock::DATA_IN_BYTES},
    {"Out", NetCounterBlock::DATA_OUT_BYTES},        {"Stored", NetCounterBlock::FILES_CREATED},
    {"Read", NetCounterBlock::FILES_READ},           {"Listings", NetCounterBlock::DIRS_READ},
    {"Failed logins", NetCounterBlock::LOGIN_FAILS},
};

bool IsBytes(COUNTER counter)
{
    return counter == NetCounterBlock::DATA_IN_BYTES || counter == NetCounterBlock::DATA_OUT_BYTES;
}

bool IsNow(COUNTER counter)
{
    return counter == NetCounterBlock::CURRENT_CONNECTIONS_IN || counter == NetCounterBlock::CURRENT_CONNECTIONS_OUT;
}

std::string Endpoint(const NetIP& ip, USHORT port)
{
    return ip.GetText().str() + ":" + std::to_string(port);
}

std::string SessionText(const NetSessionStatus& session)
{
    char text[40];
    std::snprintf(text, sizeof text, "%08lX-%08lX", session.GetSessionID().GetThread(),
                  session.GetSessionID().GetSession());
    return text;
}

/// Lines in columns; the first leftCount columns stand left, numbers right.
std::string InColumns(const std::vector<LINE>& lines, std::size_t leftCount)
{
    std::vector<std::size_t> widths;
    for (const LINE& line : lines) {
        widths.resize(std::max(widths.size(), line.size()));
        for (std::size_t i = 0; i < line.size(); ++i)
            widths[i] = std::max(widths[i], line[i].size());
    }
    std::string text;
    for (const LINE& line : lines) {
        std::string row;
        for (std::size_t i = 0; i < line.size(); ++i) {
            const std::string fill(widths[i] - line[i].size(), ' ');
            row += (i == 0 ? "" : "  ") + (i < leftCount ? line[i] + fill : fill + line[i]);
        }
        row.erase(row.find_last_not_of(' ') + 1);
        text += row + "\n";
    }
    return text;
}

template <class RECORD, std::size_t SIZE>
void AddCells(LINE& line, std::span<const RECORD> records, const COLUMN (&columns)[SIZE])
{
    for (const COLUMN& column : columns) {
        ULONG8 value = 0;
        for (const RECORD& record : records) {
            const ULONG8 one = record.GetCounter(column.counter);
            value = IsNow(column.counter) ? std::max(value, one) : value + one;
        }
        line.push_back(IsBytes(column.counter) ? ShortNumber(value) : std::to_string(value));
    }
}

template <std::size_t SIZE> void AddHeadings(LINE& line, const COLUMN (&columns)[SIZE])
{
    for (const COLUMN& column : columns)
        line.emplace_back(column.heading);
}

/// A field of a CSV line. One that a spreadsheet would take for a formula gets a quote in front.
std::string CsvField(std::string text)
{
    if (!text.empty() && std::string("=+-@").find(text.front()) != std::string::npos)
        text.insert(text.begin(), '\'');
    if (text.find_first_of(",\"\r\n") == std::string::npos)
        return text;
    std::string quoted = "\"";
    for (const char character : text)
        quoted += character == '"' ? std::string("\"\"") : std::string(1, character);
    return quoted + "\"";
}

/// Name and value of a field, in the order in which they are written.
using FIELDS = std::vector<std::pair<const char*, nlohmann::ordered_json>>;

template <class RECORD> void AddCounters(FIELDS& fields, const RECORD& record)
{
    for (std::uint32_t index = 0; index < NetCounterBlock::COUNTER_COUNT; ++index) {
        const auto counter = static_cast<COUNTER>(index);
        fields.emplace_back(CounterName(counter), record.GetCounter(counter));
    }
}

FIELDS ToFields(const NetSessionStatus& session)
{
    FIELDS fields{
        {"Start", LogTimeIso(session.GetStartTime())},
        {"End", LogTimeIso(session.GetEndTime())},
        {"Session", SessionText(session)},
        {"User", Printable(session.GetUser())},
        {"RemoteIP", session.GetRemoteIP().GetText().str()},
        {"RemotePort", session.GetRemotePort()},
        {"LocalIP", session.GetLocalIP().GetText().str()},
        {"LocalPort", session.GetLocalPort()},
    };
    AddCounters(fields, session);
    return fields;
}

TimePos StartOf(const NetSessionActivity& period)
{
    TimePos start;
    DataLogEntryTime::sConvertToTimePos(period.GetTimeUnit(), start);
    return start;
}

FIELDS ToFields(const NetSessionActivity& period)
{
    FIELDS fields{{"Start", LogTimeIso(StartOf(period))}};
    AddCounters(fields, period);
    return fields;
}

template <class RECORD> std::string ToCsv(const std::vector<RECORD>& records)
{
    std::string text;
    const auto addLine = [&text](const FIELDS& fields, bool names) {
        for (std::size_t i = 0; i < fields.size(); ++i) {
            const auto& [name, value] = fields[i];
            text += i == 0 ? "" : ",";
            text += names ? std::string(name) : value.is_string() ? CsvField(value) : value.dump();
        }
        text += "\r\n";
    };
    addLine(ToFields(RECORD()), true);
    for (const RECORD& record : records)
        addLine(ToFields(record), false);
    return text;
}

template <class RECORD> std::string ToJson(const std::vector<RECORD>& records)
{
    auto list = nlohmann::ordered_json::array();
    for (const RECORD& record : records) {
        nlohmann::ordered_json object;
        for (auto& [name, value] : ToFields(record))
            object[name] = std::move(value);
        list.push_back(std::move(object));
    }
    return list.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
}

std::string SessionTable(const std::vector<NetSessionStatus>& sessions)
{
    std::vector<LINE> lines{{"Start (UTC)", "End (UTC)", "Client", "User"}};
    AddHeadings(lines.back(), SESSION_COLUMNS);
    for (const NetSessionStatus& session : sessions) {
        lines.push_back({LogTimeText(session.GetStartTime()), LogTimeText(session.GetEndTime()),
                         Endpoint(session.GetRemoteIP(), session.GetRemotePort()), Printable(session.GetUser())});
        AddCells(lines.back(), std::span<const NetSessionStatus>(&session, 1), SESSION_COLUMNS);
    }
    lines.push_back({std::to_string(sessions.size()) + (sessions.size() == 1 ? " session" : " sessions"), "", "", ""});
    AddCells(lines.back(), std::span<const NetSessionStatus>(sessions), SESSION_COLUMNS);
    return InColumns(lines, 4);
}

std::string ActivityTable(const std::vector<NetSessionActivity>& periods)
{
    std::vector<LINE> lines{{"From (UTC)"}};
    AddHeadings(lines.back(), ACTIVITY_COLUMNS);
    for (const NetSessionActivity& period : periods) {
        lines.push_back({LogTimeText(StartOf(period))});
        AddCells(lines.back(), std::span<const NetSessionActivity>(&period, 1), ACTIVITY_COLUMNS);
    }
    lines.push_back({"In all"});
    AddCells(lines.back(), std::span<const NetSessionActivity>(periods), ACTIVITY_COLUMNS);
    return InColumns(lines, 1);
}

} // namespace

std::string ShortNumber(ULONG8 value)
{
    constexpr ULONG8 STEP = 1024;
    const char* unit = " KMGTPE";
    double shown = static_cast<double>(value);
    if (value < STEP)
        return std::to_string(value);
    while (shown >= 999.5) {
        shown /= static_cast<double>(STEP);
        ++unit;
    }
    char text[32];
    std::snprintf(text, sizeof text, shown < 9.95 ? "%.1f %c" : "%.0f %c", shown, *unit);
    return text;
}

std::string FormatSessions(const std::vector<NetSessionStatus>& sessions, LOGFORMAT format)
{
    switch (format) {
    case LOGFORMAT::CSV:
        return ToCsv(sessions);
    case LOGFORMAT::JSON:
        return ToJson(sessions);
    case LOGFORMAT::TABLE:
        break;
    }
    return SessionTable(sessions);
}

std::string FormatActivity(const std::vector<NetSessionActivity>& periods, LOGFORMAT format)
{
    switch (format) {
    case LOGFORMAT::CSV:
        return ToCsv(periods);
    case LOGFORMAT::JSON:
        return ToJson(periods);
    case LOGFORMAT::TABLE:
        break;
    }
    return ActivityTable(periods);
}

} // namespace kq
