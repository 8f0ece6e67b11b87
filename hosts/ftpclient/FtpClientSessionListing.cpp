// FtpClientSession: listings, and questions about single files.
#include "hosts/ftpclient/FtpClientSession.h"

#include "hosts/ftpclient/FtpNames.h"
#include "hosts/ftpcommon/FtpText.h"
#include "hosts/ftpcommon/FtpTime.h"

#include <algorithm>

namespace kqlib {

namespace {

using KIND = FtpRemoteEntry::KIND;

/// Of one listing in bytes: a server that never ends it is given up.
constexpr std::size_t MAX_LISTING = 128U << 20;
constexpr unsigned FILE_STATUS = 213;
constexpr unsigned NOT_AVAILABLE = 450;
constexpr unsigned NOT_FOUND = 550;
constexpr std::size_t MAX_SIZE_DIGITS = 19;

} // namespace

/// The folder is entered first: its name then stands in no command of the listing, where some servers would take it
/// for flags or patterns.
bool FtpClientSession::xList(const REQUEST& request)
{
    const String folder = xFullPath(request.remotePath);
    std::vector<FtpRemoteEntry> entries;
    if (!xDemand("CWD", folder))
        return false;
    bool isListed = xListAs(m_features.listForm, folder, entries);
    // The next form, as long as the server does not offer this one.
    while (!isListed && m_result.outcome == OUTCOME::REFUSED && m_reply.IsNotOffered() &&
           m_features.listForm != FORM::NAMES)
    {
        m_features.listForm = m_features.listForm == FORM::FACTS ? FORM::LONG : FORM::NAMES;
        m_result = FtpClientResult();
        entries.clear();
        isListed = xListAs(m_features.listForm, folder, entries);
    }
    isListed = isListed && (!request.wantsTimes || xProbeTimes(folder, entries));
    xRecordDirViewed(xGetMainNetState(), isListed, folder, m_result.text);
    m_result.entries = std::move(entries);
    return isListed;
}

bool FtpClientSession::xListAs(FORM form, const String& folder, std::vector<FtpRemoteEntry>& entries)
{
    std::string text;
    switch (form) {
    case FORM::FACTS:
        if (!xReadListing("MLSD", String(), text))
            return false;
        FtpListParser::sParseAll(form, text, entries);
        return true;
    case FORM::LONG:
        if (!xReadLongListing(text))
            return false;
        // A form that is not known here: names alone then.
        if (FtpListParser::sParseAll(form, text, entries) == 0 || !entries.empty())
            return true;
        break;
    case FORM::NAMES:
        break;
    }
    return xListNames(folder, entries);
}

bool FtpClientSession::xReadLongListing(std::string& text)
{
    if (m_features.mayListAll && !xReadListing("LIST", "-a", text)) {
        if (m_result.outcome != OUTCOME::REFUSED)
            return false;
        m_result = FtpClientResult();
    }
    // Taken for the name of a file, "-a" gives nothing; understood, at least the folder itself.
    m_features.mayListAll = !text.empty();
    return !text.empty() || xReadListing("LIST", String(), text);
}

bool FtpClientSession::xListNames(const String& folder, std::vector<FtpRemoteEntry>& entries)
{
    std::string text;
    if (!xReadListing("NLST", String(), text)) {
        const unsigned code = m_result.replyCode; // what many say of an empty folder
        if (m_result.outcome != OUTCOME::REFUSED || (code != NOT_AVAILABLE && code != NOT_FOUND))
            return false;
        m_result = FtpClientResult();
        return true;
    }
    FtpListParser::sParseAll(FORM::NAMES, text, entries);
    return xProbeKinds(folder, entries);
}

bool FtpClientSession::xReadListing(const String& verb, const String& argument, std::string& text)
{
    ULONG8 from = 0;
    if (!xBeginTransfer(verb, argument, from))
        return false;
    for (bool isOpen = true; isOpen;) {
        ULONG got = 0;
        if (!xReceiveData(got, isOpen))
            return xEndTransfer(false);
        if (text.size() + got > MAX_LISTING) {
            xFail(OUTCOME::CONFUSED, "the server's listing does not end");
            return xEndTransfer(false);
        }
        text.append(reinterpret_cast<const char*>(m_chunk.data()), got);
    }
    return xEndTransfer(true);
}

/// Finds out which names are folders.
bool FtpClientSession::xProbeKinds(const String& folder, std::vector<FtpRemoteEntry>& entries)
{
    for (FtpRemoteEntry& entry : entries) {
        bool isFolder = false;
        if (!FtpNames::sIsPlain(entry.name) || !FtpNames::sCanBeSent(entry.name))
            continue;
        if (!xIsFolder(FtpNames::sJoin(folder, entry.name), isFolder))
            return false;
        entry.kind = isFolder ? KIND::FOLDER : KIND::FILE;
    }
    return true;
}

/// Asks for what the listing did not tell exactly.
bool FtpClientSession::xProbeTimes(const String& folder, std::vector<FtpRemoteEntry>& entries)
{
    for (FtpRemoteEntry& entry : entries) {
        if (entry.kind != KIND::FILE || entry.modifiedMs || !FtpNames::sIsPlain(entry.name) ||
            !FtpNames::sCanBeSent(entry.name))
            continue;
        if (!xAskSizeAndTime(FtpNames::sJoin(folder, entry.name), entry))
            return false;
    }
    return true;
}

bool FtpClientSession::xGetFacts(const String& path, FtpRemoteEntry& entry)
{
    entry.name = FtpNames::sNameOf(path);
    if (m_features.listForm == FORM::FACTS) {
        if (!xAsk("MLST", path))
            return false;
        if (m_reply.IsSuccess() && !m_reply.GetInnerLines().empty()) {
            // " facts name", of which the name is left as it was asked for
            const String& line = m_reply.GetInnerLines().front();
            const String::size_type start = line.StartsWith(" ") ? 1 : 0;
            const String::size_type blank = line.find(' ', start);
            if (blank != String::npos && FtpListParser::sParseFacts(line.substr(start, blank - start), entry))
                return true;
        }
        if (!m_reply.IsSuccess() && !m_reply.IsNotOffered())
            return xFailRefused();
    }
    bool isFolder = false;
    if (!xAskSizeAndTime(path, entry))
        return false;
    if (entry.size || entry.modifiedMs) {
        entry.kind = KIND::FILE;
        return true;
    }
    if (!xIsFolder(path, isFolder))
        return false;
    entry.kind = isFolder ? KIND::FOLDER : KIND::FILE; // if it is there at all; its transfer will tell
    return true;
}

/// What the server does not tell stays unknown. False only for a lost connection or a cancelled request.
bool FtpClientSession::xAskSizeAndTime(const String& path, FtpRemoteEntry& entry)
{
    if (!entry.size) {
        if (!xAsk("SIZE", path))
            return false;
        if (m_reply.GetCode() == FILE_STATUS && IsDecimal(m_reply.GetText(), MAX_SIZE_DIGITS))
            entry.size = m_reply.GetText().ToULONG8();
    }
    if (!xAsk("MDTM", path))
        return false;
    std::int64_t timeMs = 0;
    if (m_reply.GetCode() == FILE_STATUS && FtpTime::sParse(m_reply.GetText(), timeMs))
        entry.modifiedMs = FtpTime::sToFullSecond(timeMs);
    return true;
}

/// The only question that every server answers: whether it can be entered.
bool FtpClientSession::xIsFolder(const String& path, bool& isFolder)
{
    if (!xAsk("CWD", path))
        return false;
    isFolder = m_reply.IsSuccess();
    return true;
}

} // namespace kqlib
