// FtpReply: what the server answers to a command.
#include "hosts/ftpclient/FtpReply.h"

#include "hosts/ftpcommon/FtpText.h"

namespace kqlib {

namespace {

constexpr std::size_t CODE_DIGITS = 3;
constexpr std::size_t MAX_WHOLE_TEXT = 1000;
constexpr std::size_t MAX_LINES = 2000; // longer than any greeting; a server that never ends its reply is given up

/// The code that a line begins with; 0: none. What follows is nothing, a blank or, with more lines to come, "-".
unsigned ReadCode(const String& line, bool& more)
{
    if (line.size() < CODE_DIGITS || !IsDecimal(line.substr(0, CODE_DIGITS)))
        return 0;
    const char next = line.size() > CODE_DIGITS ? line[CODE_DIGITS] : ' ';
    const auto code = static_cast<unsigned>(line.substr(0, CODE_DIGITS).ToULONG());
    if ((next != ' ' && next != '-') || code < 100 || code > 599)
        return 0;
    more = next == '-';
    return code;
}

String TextOf(const String& line)
{
    return line.size() > CODE_DIGITS ? line.substr(CODE_DIGITS + 1) : String();
}

} // namespace

FtpReply::STATE FtpReply::AddLine(const String& line)
{
    bool more = false;
    const unsigned code = ReadCode(line, more);
    if (m_isOver) {
        Reset();
        if (code == 0)
            return STATE::WRONG;
        m_code = code;
        (more ? m_first : m_text) = TextOf(line);
        m_isOver = !more;
        return more ? STATE::INCOMPLETE : STATE::COMPLETE;
    }
    if (code == m_code && !more) { // any other line, even with a code, belongs to the text
        m_text = TextOf(line);
        m_isOver = true;
        return STATE::COMPLETE;
    }
    if (m_inner.size() == MAX_LINES) {
        m_isOver = true;
        return STATE::WRONG;
    }
    m_inner.push_back(line);
    return STATE::INCOMPLETE;
}

String FtpReply::GetWholeText() const
{
    String whole;
    const auto add = [&whole](const String& text) {
        if (!text.empty() && whole.size() < MAX_WHOLE_TEXT)
            whole += (whole.empty() ? "" : "; ") + text;
    };
    add(m_first);
    for (const String& line : m_inner) {
        bool more = false;
        const bool hasCode = ReadCode(line, more) == m_code; // many servers begin every line with it
        const std::string& text = line.str();
        const std::string::size_type start = text.find_first_not_of(' ', hasCode ? CODE_DIGITS + 1 : 0);
        add(start == std::string::npos ? String() : String(text.substr(start)));
    }
    add(m_text);
    return whole;
}

void FtpReply::Reset()
{
    m_code = 0;
    m_isOver = true;
    m_first.clear();
    m_text.clear();
    m_inner.clear();
}

} // namespace kqlib
