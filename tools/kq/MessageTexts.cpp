#include "tools/kq/MessageTexts.h"

#include "net/dns/NetDNS.h"
#include "net/ipcontrol/NetIPControlEntry.h"
#include "net/ssl/NetSSLCertControl.h"
#include "net/ssl/NetSSLCertCreate.h"

#include <nlohmann/json.hpp>

#include <cstdio>

namespace kq {

using namespace kqlib;

namespace {

/// What the maker of keys and certificates says; null for any other code.
const char* CertControlText(int code)
{
    switch (code) {
    case NetSSLCertControl::MSG_OBJECT:
        return "the TLS library could not make an object, or set the version or start of validity of a certificate";
    case NetSSLCertControl::MSG_KEY_WRITE:
        return "the private key could not be made or its file not be written";
    case NetSSLCertControl::MSG_CERTIFICATE:
        return "the certificate could not be completed or its file not be written";
    case NetSSLCertControl::MSG_REQUEST:
        return "the signing request could not be made or its file not be written (a field is too long or does not fit)";
    case NetSSLCertControl::MSG_KEY_READ:
        return "the private key cannot be read: no such file, no key in it, damaged, or it wants a pass phrase";
    case NetSSLCertControl::MSG_KEY_ENCRYPTED:
        return "the private key is encrypted: remove its pass phrase first";
    case NetSSLCertControl::MSG_CERTIFICATE_READ:
        return "the certificate cannot be read: no such file, no certificate in it, or damaged";
    case NetSSLCertControl::MSG_KEY_REFUSED:
        return "the private key is of a kind that TLS cannot use";
    case NetSSLCertControl::MSG_CERTIFICATE_REFUSED:
        return "the TLS library refuses the certificate (its key may be too small)";
    case NetSSLCertControl::MSG_MISMATCH:
        return "the private key does not belong to the certificate";
    default:
        return nullptr;
    }
}

/// What is wrong with the settings of a certificate; null for any other code.
const char* CertCreateText(int code)
{
    switch (code) {
    case NetSSLCertCreate::MSG_NAME:
        return "name: must not be empty or hold any of < > ~ ! # $ % ^ * \\ / ? , & @";
    case NetSSLCertCreate::MSG_COMMON_NAME:
        return "common name: must not be empty or hold any of < > ~ ! # $ % ^ * \\ / ? , & @";
    case NetSSLCertCreate::MSG_UNIT:
        return "unit: must not be empty or hold any of < > ~ ! # $ % ^ * \\ / ? , &";
    case NetSSLCertCreate::MSG_ORGANIZATION:
        return "organization: must not be empty or hold any of < > ~ ! # $ % ^ * \\ / ? , &";
    case NetSSLCertCreate::MSG_EMAIL:
        return "e-mail: must not be empty or hold any of < > ~ ! # $ % ^ * \\ / ? , &";
    case NetSSLCertCreate::MSG_CITY:
        return "city: must not be empty or hold any of < > ~ ! # $ % ^ * \\ / ? , &";
    case NetSSLCertCreate::MSG_STATE:
        return "state: must not be empty or hold any of < > ~ ! # $ % ^ * \\ / ? , &";
    case NetSSLCertCreate::MSG_COUNTRY:
        return "country: must be a two-letter country code, as DE or US";
    case NetSSLCertCreate::MSG_EXPIRE:
        return "expiry: must be at least one whole day ahead";
    case NetSSLCertCreate::MSG_SEED_EMPTY:
        return "seed: random data is missing";
    case NetSSLCertCreate::MSG_SEED_TOO_LONG:
        return "seed: more than 2000 bytes of random data";
    default:
        return nullptr;
    }
}

} // namespace

std::string MessageText(int code)
{
    for (const auto text : {CertControlText(code), CertCreateText(code)})
        if (text != nullptr)
            return text;
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
