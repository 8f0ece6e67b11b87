// The text form of a list of port bindings. Input: which form (and its flags), the separator, a count of separators and
// these; then the line.
#include "fuzz/Check.h"
#include "fuzz/Input.h"
#include "net/ports/NetPortBinds.h"

#include <string>

using namespace kqlib;
using namespace kqlib::fuzz;

namespace {

constexpr std::string_view TRIMMED = " \t\r\n";

/// How a line is to be read.
struct FORM
{
    explicit FORM(Input& input)
    {
        const std::uint8_t options = input.Byte();
        hasFlags = (options & 1) != 0;
        skipEmpty = !hasFlags || (options & 2) != 0;
        trim = !hasFlags || (options & 4) != 0;
        kind = static_cast<KIND>((options >> 3) % 3);
        const std::uint8_t character = input.Byte();
        if (kind == KIND::ONE)
            separators = std::string(1, static_cast<char>(character));
        else if (kind == KIND::SET)
            for (unsigned count = character % 4; count > 0; --count)
                separators += static_cast<char>(input.Byte());
        else
            separators = ",;";
    }

    void Read(NetPortBinds& binds, const String& line) const
    {
        const String set(separators);
        if (kind == KIND::ONE) {
            const auto separator = static_cast<unsigned char>(separators[0]);
            hasFlags ? binds.AddByLine(line, separator, skipEmpty, trim) : binds.AddByLine(line, separator);
        } else if (kind == KIND::SET) {
            hasFlags ? binds.AddByLine(line, set, skipEmpty, trim) : binds.AddByLine(line, set);
        } else {
            hasFlags ? binds.AddByLine(line, skipEmpty, trim) : binds.AddByLine(line);
        }
    }
    /// A line of items joined by a separator of the form is read as the same items: no port looks like a separator.
    bool CanRepeat() const
    {
        return !separators.empty() && separators.find_first_of("0123456789:") == std::string::npos;
    }

    enum class KIND : std::uint8_t
    {
        DEFAULT,
        ONE,
        SET
    };
    KIND kind;
    bool hasFlags;
    bool skipEmpty;
    bool trim;
    std::string separators;
};

USHORT ReadPort(std::string_view text)
{
    while (text.starts_with(' ') || text.starts_with('\t'))
        text.remove_prefix(1);
    unsigned number = 0;
    for (; !text.empty() && text.front() >= '0' && text.front() <= '9'; text.remove_prefix(1)) {
        number = number * 10 + static_cast<unsigned>(text.front() - '0');
        if (number > 65535)
            return 0;
    }
    return static_cast<USHORT>(number);
}

/// One item; what was left out gives nothing.
void ReadItem(NetPortBinds& binds, std::string_view item, const FORM& form)
{
    while (form.trim && !item.empty() && TRIMMED.find(item.front()) != std::string_view::npos)
        item.remove_prefix(1);
    while (form.trim && !item.empty() && TRIMMED.find(item.back()) != std::string_view::npos)
        item.remove_suffix(1);
    if (form.skipEmpty && item.empty())
        return;
    const std::size_t colon = item.find(':');
    if (colon == std::string_view::npos)
        binds.Add(NetPortBind(ReadPort(item)));
    else
        binds.Add(NetPortBind(ReadPort(item.substr(colon + 1)), String(item.substr(0, colon))));
}

/// The same list, read one character at a time.
NetPortBinds ReadLiterally(const FORM& form, std::string_view line)
{
    NetPortBinds binds;
    std::string item;
    for (const char character : line) {
        if (form.separators.find(character) == std::string::npos) {
            item += character;
            continue;
        }
        ReadItem(binds, item, form);
        item.clear();
    }
    if (!line.empty())
        ReadItem(binds, item, form);
    return binds;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input input(data, size);
    const FORM form(input);
    const String line(input.Rest());
    NetPortBinds binds;
    form.Read(binds, line);
    KQ_FUZZ_CHECK(binds == ReadLiterally(form, input.Rest()));

    // Written and read again it is the same list, in the same text.
    if (form.CanRepeat()) {
        const String written = binds.GetLine(static_cast<unsigned char>(form.separators[0]));
        NetPortBinds again;
        form.Read(again, written);
        KQ_FUZZ_CHECK(again == binds);
        KQ_FUZZ_CHECK(again.GetLine(static_cast<unsigned char>(form.separators[0])) == written);
    }
    if (form.kind == FORM::KIND::DEFAULT)
        KQ_FUZZ_CHECK(binds.GetLine() == binds.GetLine(static_cast<unsigned char>(',')));

    // Reading appends.
    const ULONG count = binds.GetCount();
    form.Read(binds, line);
    KQ_FUZZ_CHECK(binds.GetCount() == 2 * count);
    return 0;
}
