#include "tools/kq/LivePicture.h"

#include "tools/kq/LogOutput.h"
#include "tools/kq/MessageTexts.h"

#include <algorithm>
#include <string_view>

namespace kq {

using namespace kqlib;

namespace {

/// Takes the next word off the front.
std::string TakeWord(std::string_view& text)
{
    text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
    const std::string_view word = text.substr(0, text.find(' '));
    text.remove_prefix(word.size());
    text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
    return std::string(word);
}

/// The value behind " name: " in one of the lines; "" when there is none.
String ValueOf(const STRINGS& lines, const std::string& name)
{
    const std::string start = " " + name + ": ";
    for (const String& line : lines)
        if (line.str().starts_with(start))
            return line.substr(start.size());
    return {};
}

/// An amount per second between two looks.
std::string Rate(std::uint64_t now, std::uint64_t before, std::uint32_t milliSecs)
{
    if (milliSecs == 0 || now < before)
        return "-";
    return ShortNumber((now - before) * 1000 / milliSecs) + "/s";
}

std::string Cut(std::string text, std::size_t width)
{
    text.resize(std::min(text.size(), width));
    return text;
}

std::string Fill(const std::string& text, std::size_t width)
{
    return text + std::string(width - std::min(width, text.size()), ' ');
}

std::string Totals(const LIVEPICTURE& picture, const LIVEPICTURE* before)
{
    const LIVEPICTURE& last = before != nullptr ? *before : picture;
    const std::uint32_t passed = picture.tick - last.tick;
    return "connections " + std::to_string(picture.connectionsIn) + "   in " + ShortNumber(picture.bytesIn) + " (" +
           Rate(picture.bytesIn, last.bytesIn, passed) + ")   out " + ShortNumber(picture.bytesOut) + " (" +
           Rate(picture.bytesOut, last.bytesOut, passed) + ")   commands " + std::to_string(picture.commandsIn) + " (" +
           Rate(picture.commandsIn, last.commandsIn, passed) + ")";
}

} // namespace

void LIVEPICTURE::Read(const STRINGS& who, const STRINGS& totals)
{
    for (const String& line : who) {
        const std::string text = Printable(line);
        std::string_view rest = text;
        SESSION session;
        session.number = TakeWord(rest);
        session.user = TakeWord(rest);
        session.client = TakeWord(rest);
        session.action = rest;
        if (!session.client.empty())
            sessions.push_back(std::move(session));
    }
    since = Printable(ValueOf(totals, "Since"));
    connectionsIn = ValueOf(totals, "Connections in").ToULONG8();
    bytesIn = ValueOf(totals, "Bytes in").ToULONG8();
    bytesOut = ValueOf(totals, "Bytes out").ToULONG8();
    commandsIn = ValueOf(totals, "Commands in").ToULONG8();
}

std::string DrawLivePicture(const std::string& server, const LIVEPICTURE& picture, const LIVEPICTURE* before,
                            unsigned width)
{
    std::size_t userWidth = 4;
    std::size_t clientWidth = 6;
    for (const LIVEPICTURE::SESSION& session : picture.sessions) {
        userWidth = std::max(userWidth, session.user.size());
        clientWidth = std::max(clientWidth, session.client.size());
    }
    const auto line = [&](const LIVEPICTURE::SESSION& session) {
        return Cut(Fill(session.number, 7) + Fill(session.user, userWidth + 2) + Fill(session.client, clientWidth + 2) +
                       session.action,
                   width) +
               "\n";
    };
    std::string text = Cut(server + ", since " + picture.since, width) + "\n" + Cut(Totals(picture, before), width) +
                       "\n\n" + line({"Number", "User", "Client", "Action"});
    for (const LIVEPICTURE::SESSION& session : picture.sessions)
        text += line(session);
    return text;
}

} // namespace kq
