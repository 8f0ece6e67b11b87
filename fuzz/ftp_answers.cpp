// What a server tells the FTP client. Input: one byte (0: replies, 1 to 3: a listing, of which form), then the lines.
#include "fuzz/Check.h"
#include "fuzz/Input.h"
#include "hosts/ftpclient/FtpListParser.h"
#include "hosts/ftpclient/FtpReply.h"
#include "hosts/ftpcommon/FtpTime.h"

#include <string>

using namespace kqlib;
using namespace kqlib::fuzz;

namespace {

using FORM = FtpListParser::FORM;
using LINE = FtpListParser::LINE;
using KIND = FtpRemoteEntry::KIND;
using STATE = FtpReply::STATE;
using LINES = std::vector<std::string>;

constexpr std::size_t MAX_INNER = 2000;

/// Lines end in LF, a CR before it is no part of them; the last one may have no end.
LINES SplitLines(std::string_view text)
{
    LINES lines(1);
    for (const char character : text) {
        if (character != '\n') {
            lines.back() += character;
            continue;
        }
        if (lines.back().ends_with('\r'))
            lines.back().pop_back();
        lines.emplace_back();
    }
    if (lines.back().ends_with('\r'))
        lines.back().pop_back();
    if (text.empty() || text.back() == '\n')
        lines.pop_back();
    return lines;
}

/// The code of a reply's first or last line, "" when it is none.
std::string CodeOf(const std::string& line)
{
    const std::string code = line.substr(0, 3);
    const bool isCode = code.size() == 3 && code[0] >= '1' && code[0] <= '5' &&
                        code.find_first_not_of("0123456789") == std::string::npos;
    return isCode && (line.size() == 3 || line[3] == ' ' || line[3] == '-') ? code : "";
}

bool IsLast(const std::string& line, const std::string& code)
{
    return CodeOf(line) == code && (line.size() == 3 || line[3] == ' ');
}

/// One reply, or one line that begins none (RFC 959, section 4.2). next: the line behind it then.
STATE FindReply(const LINES& lines, std::size_t& next)
{
    const std::string& first = lines[next++];
    const std::string code = CodeOf(first);
    if (code.empty())
        return STATE::WRONG;
    if (IsLast(first, code))
        return STATE::COMPLETE;
    for (std::size_t inner = 0; next < lines.size(); ++inner) {
        if (IsLast(lines[next++], code))
            return STATE::COMPLETE;
        if (inner == MAX_INNER)
            return STATE::WRONG;
    }
    return STATE::INCOMPLETE;
}

void CheckReplies(const LINES& lines)
{
    FtpReply reply;
    for (std::size_t next = 0; next < lines.size();) {
        const std::size_t start = next;
        const STATE expected = FindReply(lines, next);
        STATE state = STATE::INCOMPLETE;
        for (std::size_t i = start; i < next; ++i) {
            KQ_FUZZ_CHECK(state == STATE::INCOMPLETE);
            state = reply.AddLine(String(lines[i]));
        }
        KQ_FUZZ_CHECK(state == expected);
        if (state != STATE::COMPLETE)
            continue;
        KQ_FUZZ_CHECK(std::to_string(reply.GetCode()) == lines[start].substr(0, 3));
        KQ_FUZZ_CHECK(reply.GetText() == String(lines[next - 1].size() > 3 ? lines[next - 1].substr(4) : ""));
        const STRINGS& inner = reply.GetInnerLines();
        KQ_FUZZ_CHECK(inner.size() == (next - start > 1 ? next - start - 2 : 0));
        for (std::size_t i = 0; i < inner.size(); ++i)
            KQ_FUZZ_CHECK(inner[i] == String(lines[start + 1 + i]));
    }
}

bool IsSame(const FtpRemoteEntry& left, const FtpRemoteEntry& right)
{
    return left.name == right.name && left.kind == right.kind && left.size == right.size &&
           left.modifiedMs == right.modifiedMs;
}

void CheckEntry(FORM form, const FtpRemoteEntry& entry)
{
    const bool isFolderItself = entry.name == "." || entry.name == "..";
    KQ_FUZZ_CHECK(form == FORM::FACTS || !isFolderItself || entry.kind != KIND::OTHER);
    KQ_FUZZ_CHECK(form != FORM::NAMES || entry.name.find('/') == String::npos);
    KQ_FUZZ_CHECK(entry.modifiedMs.value_or(0) % 1000 == 0);
    KQ_FUZZ_CHECK(entry.size.value_or(0) <= 9999999999999999999ULL);

    // Told again in facts, it is the same.
    static constexpr const char* TYPES[] = {"file", "dir", "OS.unix=symlink", "x"};
    std::string line = std::string("type=") + TYPES[static_cast<std::size_t>(entry.kind)] + ";";
    if (entry.size)
        line += "size=" + std::to_string(*entry.size) + ";";
    if (entry.modifiedMs)
        line += "modify=" + FtpTime::sFormat(*entry.modifiedMs).str() + ";";
    FtpRemoteEntry again;
    KQ_FUZZ_CHECK(FtpListParser::sParse(FORM::FACTS, String(line + " " + entry.name.str()), again) == LINE::ENTRY);
    KQ_FUZZ_CHECK(IsSame(again, entry));
}

void CheckListing(FORM form, std::string_view text)
{
    std::vector<FtpRemoteEntry> entries;
    const std::size_t unknown = FtpListParser::sParseAll(form, std::string(text), entries);
    std::size_t unknownLines = 0;
    std::size_t count = 0;
    for (const std::string& line : SplitLines(text)) {
        FtpRemoteEntry entry;
        const LINE kind = FtpListParser::sParse(form, String(line), entry);
        unknownLines += kind == LINE::UNKNOWN ? 1 : 0;
        if (kind != LINE::ENTRY)
            continue;
        KQ_FUZZ_CHECK(count < entries.size() && IsSame(entries[count], entry));
        CheckEntry(form, entry);
        ++count;
    }
    KQ_FUZZ_CHECK(count == entries.size() && unknown == unknownLines);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    constexpr FORM FORMS[] = {FORM::FACTS, FORM::LONG, FORM::NAMES};
    Input input(data, size);
    const std::uint8_t what = input.Byte() % 4;
    if (what == 0)
        CheckReplies(SplitLines(input.Rest()));
    else
        CheckListing(FORMS[what - 1], input.Rest());
    return 0;
}
