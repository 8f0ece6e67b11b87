// Output: what kqftp prints.
#include "hosts/ftpclient/app/Output.h"

#include "hosts/ftpcommon/FtpText.h"
#include "platform/Clock.h"
#include "platform/Terminal.h"

#include <algorithm>
#include <cstdio>
#include <string>

namespace kqlib {

namespace {

constexpr unsigned BAR_WIDTH = 30;
constexpr std::size_t NAME_WIDTH = 24;

using KIND = FtpRemoteEntry::KIND;

char LetterOf(KIND kind)
{
    switch (kind) {
    case KIND::FILE:
        return '-';
    case KIND::FOLDER:
        return 'd';
    case KIND::LINK:
        return 'l';
    case KIND::OTHER:
        break;
    }
    return '?';
}

/// "2024-01-31 12:34:56", UTC; blanks when the server did not tell.
std::string TimeText(const FtpRemoteEntry& entry)
{
    platform::CalendarTime time = {};
    char text[64];
    if (!entry.modifiedMs || !platform::ToUtcTime(*entry.modifiedMs, time))
        return std::string(19, ' ');
    std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d", time.year, time.month, time.day, time.hour,
                  time.minute, time.second);
    return text;
}

const char* VerbOf(FtpMirrorReport::WHAT what)
{
    using WHAT = FtpMirrorReport::WHAT;
    switch (what) {
    case WHAT::MOVED:
        return "transferred ";
    case WHAT::MADE_FOLDER:
        return "made folder ";
    case WHAT::LEFT_OUT:
        return "left out ";
    case WHAT::SAME:
    case WHAT::FAILED:
        break;
    }
    return "";
}

} // namespace

Output::Output(bool isQuiet)
    : m_isQuiet(isQuiet)
    , m_isTerminal(platform::IsOutputTerminal())
{
}

Output::~Output()
{
    xClearBar();
}

void Output::PrintLine(const String& text)
{
    if (m_isQuiet)
        return;
    xClearBar();
    std::printf("%s\n", MakeVisible(text).c_str());
    std::fflush(stdout);
}

void Output::PrintFailure(const String& text)
{
    xClearBar();
    std::fprintf(stderr, "kqftp: %s\n", MakeVisible(text).c_str());
}

void Output::PrintEntry(const FtpRemoteEntry& entry, bool isNameOnly)
{
    const String name = MakeVisible(entry.name);
    if (isNameOnly) {
        std::printf("%s\n", name.c_str());
        return;
    }
    const std::string size = entry.size && entry.kind == KIND::FILE ? std::to_string(*entry.size) : std::string();
    std::printf("%c %15s  %s  %s\n", LetterOf(entry.kind), size.c_str(), TimeText(entry).c_str(), name.c_str());
}

void Output::PrintMirrored(FtpMirrorReport::WHAT what, const String& path, const String& reason)
{
    using WHAT = FtpMirrorReport::WHAT;
    if (what == WHAT::FAILED)
        PrintFailure(path + ": " + reason);
    else if (what != WHAT::SAME)
        PrintLine(VerbOf(what) + path + (reason.empty() ? String() : " (" + reason + ")"));
}

void Output::PrintTotals(const FtpMirrorReport& report)
{
    using WHAT = FtpMirrorReport::WHAT;
    const auto count = [&report](WHAT what) { return String::sToString(report.GetCount(what)); };
    PrintLine(count(WHAT::MOVED) + " files transferred (" + String::sToString(report.GetBytes()) + " bytes), " +
              count(WHAT::SAME) + " were the same, " + count(WHAT::MADE_FOLDER) + " folders made, " +
              count(WHAT::LEFT_OUT) + " left out, " + count(WHAT::FAILED) + " failed");
}

void Output::ShowProgress(const FtpClientProgress& progress)
{
    if (m_isQuiet || !m_isTerminal || progress.name.empty())
        return;
    const ULONG8 percent = progress.total == 0 ? 0 : std::min<ULONG8>(progress.moved * 100 / progress.total, 100);
    const auto full = static_cast<std::size_t>(percent * BAR_WIDTH / 100);
    std::string line = "[" + std::string(full, '#') + std::string(BAR_WIDTH - full, ' ') + "] ";
    line += std::to_string(percent) + " %  " + std::to_string(progress.moved) + " bytes  ";
    line += MakeVisible(progress.name).str().substr(0, NAME_WIDTH);
    const std::size_t length = line.size();
    line.resize(std::max(length, m_barLength), ' '); // over the rest of the last one
    m_barLength = length;
    std::printf("\r%s", line.c_str());
    std::fflush(stdout);
}

void Output::xClearBar()
{
    if (m_barLength != 0)
        std::printf("\r%s\r", std::string(m_barLength, ' ').c_str());
    m_barLength = 0;
    std::fflush(stdout);
}

} // namespace kqlib
