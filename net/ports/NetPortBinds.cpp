#include "net/ports/NetPortBinds.h"

#include <algorithm>

namespace kqlib {

namespace {

/// The items of a line, by the rules of STRINGS::AddByLine.
template <class... RULES> STRINGS Split(const String& line, const RULES&... rules)
{
    STRINGS items;
    items.AddByLine(line, rules...);
    return items;
}

} // namespace

NetPortBinds::NetPortBinds(const NetPortBind& bind)
{
    Add(bind);
}

SettingsTransferable* NetPortBinds::Spawn(bool copy) const
{
    return copy ? new NetPortBinds(*this) : new NetPortBinds();
}

void NetPortBinds::AddByLine(const String& line)
{
    xRead(Split(line));
}

void NetPortBinds::AddByLine(const String& line, unsigned char separator)
{
    xRead(Split(line, separator));
}

void NetPortBinds::AddByLine(const String& line, const String& separators)
{
    xRead(Split(line, separators));
}

void NetPortBinds::AddByLine(const String& line, bool skipEmpty, bool trim)
{
    xRead(Split(line, skipEmpty, trim));
}

void NetPortBinds::AddByLine(const String& line, unsigned char separator, bool skipEmpty, bool trim)
{
    xRead(Split(line, separator, skipEmpty, trim));
}

void NetPortBinds::AddByLine(const String& line, const String& separators, bool skipEmpty, bool trim)
{
    xRead(Split(line, separators, skipEmpty, trim));
}

void NetPortBinds::GetLine(String& out) const
{
    STRINGS items;
    xBuild(items);
    items.GetLine(out);
}

void NetPortBinds::GetLine(String& out, unsigned char separator) const
{
    STRINGS items;
    xBuild(items);
    items.GetLine(out, separator);
}

String NetPortBinds::GetLine() const
{
    String line;
    GetLine(line);
    return line;
}

String NetPortBinds::GetLine(unsigned char separator) const
{
    String line;
    GetLine(line, separator);
    return line;
}

bool NetPortBinds::IsAnyPortRandom() const
{
    return std::any_of(begin(), end(), [](const NetPortBind& bind) { return bind.IsPortRandom(); });
}

bool NetPortBinds::IsYours(NetDNSCache& cache, NetIP address, unsigned short port) const
{
    return std::any_of(begin(), end(), [&](const NetPortBind& bind) { return bind.IsYours(cache, address, port); });
}

void NetPortBinds::xBuild(STRINGS& items) const
{
    for (const NetPortBind& bind : *this) {
        String item;
        if (!bind.GetHost().empty())
            item = bind.GetHost() + ":";
        item += String::sToString(bind.GetPort());
        items.push_back(item);
    }
}

void NetPortBinds::xRead(const STRINGS& items)
{
    for (const String& item : items) {
        NetPortBind bind;
        const String::size_type colon = item.find(':');
        if (colon == String::npos) {
            bind.SetPort(item.ToUSHORT());
        } else {
            bind.SetHost(item.substr(0, colon));
            bind.SetPort(item.substr(colon + 1).ToUSHORT());
        }
        Add(bind);
    }
}

} // namespace kqlib
