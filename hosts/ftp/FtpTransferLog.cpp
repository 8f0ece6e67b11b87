// FtpTransferLog: one line per transfer, for programs that read it.
#include "hosts/ftp/FtpTransferLog.h"

#include "common/LocalTime.h"
#include "hosts/ftpcommon/FtpText.h"
#include "hosts/ftpcommon/FtpTime.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <nlohmann/json.hpp>

namespace kqlib {

namespace {

constexpr const char* DAYS[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};

/// The local time as "Sun Nov 22 08:43:46 2026".
String GetDateText(const TimePos& now)
{
    const platform::CalendarTime time = GetLocalTime(now);
    const std::chrono::weekday day(std::chrono::sys_days(
        std::chrono::year(time.year) / static_cast<unsigned>(time.month) / static_cast<unsigned>(time.day)));
    char text[96];
    std::snprintf(text, sizeof text, "%s %s %2d %02d:%02d:%02d %d", DAYS[day.c_encoding()],
                  FtpTime::sGetMonthName(static_cast<unsigned>(time.month)), time.day, time.hour, time.minute,
                  time.second, time.year);
    return text;
}

/// A text as one word: fields have blanks between them.
String MakeWord(String text)
{
    for (String::size_type i = 0; i < text.size(); ++i)
        if (text[i] == ' ' || IsControlCharacter(text[i]))
            text[i] = '_';
    return text.empty() ? String("-") : text;
}

/// Setting what is set already would close the file for a moment.
void Use(LineLog& log, bool isWanted, const char* form, EventLogSettings settings)
{
    settings.SetEnabled(isWanted);
    settings.SetFileName(FtpTransferLog::sGetFileName(form));
    EventLogSettings before;
    log.GetSettings(before);
    if (!(settings == before))
        log.SetSettings(settings);
}

bool IsLogUsable(const LineLog& log)
{
    return !log.IsEnabled() || log.IsOpen();
}

} // namespace

bool FtpTransferLog::sIsForm(const String& form)
{
    return form == NONE || form == STANDARD || form == JSON;
}

String FtpTransferLog::sGetFileName(const String& form)
{
    if (form == STANDARD)
        return "kqftpd-transfers.log";
    return form == JSON ? "kqftpd-transfers.jsonl" : "";
}

void FtpTransferLog::SetSettings(const String& form, const EventLogSettings& where)
{
    Use(m_standard, form == STANDARD, STANDARD, where);
    Use(m_json, form == JSON, JSON, where);
}

bool FtpTransferLog::IsUsable() const
{
    return IsLogUsable(m_standard) && IsLogUsable(m_json);
}

bool FtpTransferLog::Reopen()
{
    const bool isStandardGood = !m_standard.IsEnabled() || m_standard.Reopen();
    const bool isJsonGood = !m_json.IsEnabled() || m_json.Reopen();
    return isStandardGood && isJsonGood;
}

void FtpTransferLog::Print(const TRANSFER& transfer)
{
    m_standard.Print([&transfer](const TimePos& now) { return sMakeStandardLine(transfer, now); });
    m_json.Print([&transfer](const TimePos& now) { return sMakeJsonLine(transfer, now); });
}

/// The fields: date, whole seconds (at least 1, for programs that divide by them), address, bytes, path, type, special
/// action ("_": none), direction, access mode, user, service, authentication ("0": none of RFC 931), the user by that
/// ("*": unknown), completion.
String FtpTransferLog::sMakeStandardLine(const TRANSFER& transfer, const TimePos& now)
{
    const ULONG8 seconds = std::max<ULONG8>((ULONG8{transfer.milliSecs} + 999) / 1000, 1);
    String line = GetDateText(now) + " " + String::sToString(seconds) + " " + transfer.address.GetText() + " " +
                  String::sToString(transfer.bytes) + " " + MakeWord(transfer.path.GetText());
    line += transfer.isText ? " a _ " : " b _ ";
    line += transfer.isUpload ? "i " : "o ";
    line += transfer.isAnonymous ? "a " : "r ";
    line += MakeWord(transfer.user) + " ftp 0 * ";
    line += transfer.isComplete ? "c" : "i";
    return line;
}

String FtpTransferLog::sMakeJsonLine(const TRANSFER& transfer, const TimePos& now)
{
    std::string time = now.GetText().str();
    std::replace(time.begin(), time.end(), ' ', 'T');
    nlohmann::ordered_json line;
    line["time"] = time + "Z";
    line["user"] = transfer.user.str();
    line["anonymous"] = transfer.isAnonymous;
    line["address"] = transfer.address.GetText().str();
    line["command"] = transfer.command;
    line["direction"] = transfer.isUpload ? "upload" : "download";
    line["path"] = transfer.path.GetText().str();
    line["type"] = transfer.isText ? "ascii" : "binary";
    line["tls"] = transfer.isSecured;
    line["size"] = transfer.bytes;
    line["seconds"] = static_cast<double>(transfer.milliSecs) / 1000;
    line["outcome"] = transfer.isComplete ? "complete" : "incomplete";
    if (!transfer.isComplete)
        line["reason"] = transfer.reason.str();
    // A name need not be UTF-8, a line must be.
    return line.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

} // namespace kqlib
