#include "tools/kq/MessageTexts.h"

#include "net/dns/NetDNS.h"
#include "net/ipcontrol/NetIPControlEntry.h"

#include <nlohmann/json.hpp>

#include <cstdio>

namespace kq {

using namespace kqlib;

std::string MessageText(int code)
{
    switch (code) {
    case NetDNS::MSG_NO_RECORDS:
        return "the name has no records of this type";
    case NetDNS::MSG_FORMAT_ERROR:
        return "the server could not read the query";
    case NetDNS::MSG_SERVER_FAILURE:
        return "server failure: no server, no answer, or none that makes sense";
    case NetDNS::MSG_NAME_ERROR:
        return "there is no such name, or it cannot be asked for";
    case NetDNS::MSG_NOT_IMPLEMENTED:
        return "the server does not do such queries";
    case NetDNS::MSG_REFUSED:
        return "the server refuses to answer";
    case NetIPControlEntry::MSG_RANGE_UPSIDE_DOWN:
        return "the range begins behind its end";
    case NetIPControlEntry::MSG_HOST_EMPTY:
        return "the host name is empty";
    case NetIPControlEntry::MSG_REVERSE_HOST_EMPTY:
        return "the pattern for reverse names is empty";
    case NetIPControlEntry::MSG_SENDER_IS_ADDRESS:
        return "the sender is a complete mail address where a pattern is expected";
    case NetIPControlEntry::MSG_RECIPIENT_IS_ADDRESS:
        return "the recipient is a complete mail address where a pattern is expected";
    default:
        return "message " + std::to_string(code);
    }
}

nlohmann::json MessagesToJson(const Messages& msgs)
{
    nlohmann::json list = nlohmann::json::array();
    for (ULONG i = 0; i < msgs.GetMessageCount(); ++i)
        list.push_back({{"code", msgs.Get(i)}, {"text", MessageText(msgs.Get(i))}});
    return list;
}

std::string Printable(const String& text)
{
    std::string printable;
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        if (byte >= 0x20 && byte != 0x7F) {
            printable += character;
            continue;
        }
        char high = 0;
        char low = 0;
        String::sToHex(character, high, low);
        printable += '%';
        printable += high;
        printable += low;
    }
    return printable;
}

void PrintJson(const nlohmann::json& document)
{
    std::printf("%s\n", document.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace).c_str());
}

} // namespace kq
