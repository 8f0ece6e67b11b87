// FtpHash: the hashes that a client may ask for.
#include "hosts/ftp/FtpHash.h"

#include <algorithm>
#include <iterator>
#include <openssl/evp.h>

namespace kqlib {

namespace {

struct KIND
{
    const char* name;
    const EVP_MD* (*get)();
};

constexpr KIND KINDS[] = {
    {"SHA-512", EVP_sha512},
    {"SHA-256", EVP_sha256},
    {"SHA-1", EVP_sha1},
    {"MD5", EVP_md5},
};

const KIND* FindKind(const String& name)
{
    const auto* found = std::find_if(std::begin(KINDS), std::end(KINDS),
                                     [&name](const KIND& kind) { return name.MatchesI(kind.name); });
    return found == std::end(KINDS) ? nullptr : found;
}

} // namespace

struct FtpHash::STATE
{
    struct FREE
    {
        void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
    };
    std::unique_ptr<EVP_MD_CTX, FREE> context{EVP_MD_CTX_new()};
    bool isGood = false;
};

String FtpHash::sGetNames(const String& selected)
{
    String names;
    for (const KIND& kind : KINDS) {
        names += names.empty() ? "" : ";";
        names += kind.name;
        names += selected == kind.name ? "*" : "";
    }
    return names;
}

String FtpHash::sFindName(const String& name)
{
    const KIND* kind = FindKind(name);
    return kind == nullptr ? "" : kind->name;
}

FtpHash::FtpHash(const String& name)
    : m_state(std::make_unique<STATE>())
{
    const KIND* kind = FindKind(name);
    m_state->isGood = kind != nullptr && m_state->context != nullptr &&
                      EVP_DigestInit_ex(m_state->context.get(), kind->get(), nullptr) == 1;
}

FtpHash::~FtpHash() = default;

bool FtpHash::Add(const unsigned char* bytes, std::size_t length)
{
    m_state->isGood = m_state->isGood && EVP_DigestUpdate(m_state->context.get(), bytes, length) == 1;
    return m_state->isGood;
}

String FtpHash::Finish()
{
    unsigned char hash[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    if (!m_state->isGood || EVP_DigestFinal_ex(m_state->context.get(), hash, &length) != 1)
        return {};
    m_state->isGood = false;
    constexpr const char DIGITS[] = "0123456789abcdef";
    String text;
    for (unsigned int i = 0; i < length; ++i) {
        text += DIGITS[hash[i] >> 4];
        text += DIGITS[hash[i] & 15U];
    }
    return text;
}

} // namespace kqlib
