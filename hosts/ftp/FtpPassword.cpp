// FtpPassword: the stored form of a password.
#include "hosts/ftp/FtpPassword.h"

#include "common/STRINGS.h"

#include <array>
#include <cstdint>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/rand.h>
#include <vector>

namespace kqlib {

namespace {

constexpr std::uint64_t COST = 16384;   // N, a power of two
constexpr std::uint64_t BLOCK_SIZE = 8; // r
constexpr std::uint64_t PARALLEL = 1;   // p
constexpr std::uint64_t MAX_COST = 1 << 20;
constexpr std::uint64_t MAX_BLOCK_SIZE = 32;
constexpr std::uint64_t MAX_PARALLEL = 16;
constexpr std::size_t SALT_BYTES = 16;
constexpr std::size_t HASH_BYTES = 32;
constexpr std::size_t FIELDS = 6; // "scrypt", N, r, p, salt, hash

using BYTES = std::vector<unsigned char>;

struct STORED
{
    std::uint64_t cost = 0;
    std::uint64_t blockSize = 0;
    std::uint64_t parallel = 0;
    BYTES salt;
    BYTES hash;
};

String ToHex(const BYTES& bytes)
{
    String text;
    for (const unsigned char byte : bytes) {
        char high = 0;
        char low = 0;
        String::sToHex(static_cast<char>(byte), high, low);
        text += high;
        text += low;
    }
    return text;
}

int HexDigit(char digit)
{
    if (digit >= '0' && digit <= '9')
        return digit - '0';
    if (digit >= 'A' && digit <= 'F')
        return digit - 'A' + 10;
    if (digit >= 'a' && digit <= 'f')
        return digit - 'a' + 10;
    return -1;
}

bool FromHex(const String& text, BYTES& bytes)
{
    bytes.clear();
    if (text.size() % 2 != 0)
        return false;
    for (std::size_t i = 0; i < text.size(); i += 2) {
        const int high = HexDigit(text[i]);
        const int low = HexDigit(text[i + 1]);
        if (high < 0 || low < 0)
            return false;
        bytes.push_back(static_cast<unsigned char>(high * 16 + low));
    }
    return true;
}

bool Parse(const String& text, STORED& out)
{
    STRINGS fields;
    fields.AddByLine(text, static_cast<unsigned char>('$'), false, false);
    if (fields.size() != FIELDS || !(fields[0] == "scrypt"))
        return false;
    out.cost = fields[1].ToULONG();
    out.blockSize = fields[2].ToULONG();
    out.parallel = fields[3].ToULONG();
    const bool costs = out.cost >= 2 && out.cost <= MAX_COST && (out.cost & (out.cost - 1)) == 0 &&
                       out.blockSize >= 1 && out.blockSize <= MAX_BLOCK_SIZE && out.parallel >= 1 &&
                       out.parallel <= MAX_PARALLEL;
    return costs && FromHex(fields[4], out.salt) && FromHex(fields[5], out.hash) && out.hash.size() == HASH_BYTES;
}

/// Fills hash from the password and the costs and salt of stored.
bool Derive(const String& password, const STORED& stored, BYTES& hash)
{
    hash.assign(HASH_BYTES, 0);
    const std::uint64_t memory = 128 * stored.blockSize * (stored.cost + stored.parallel + 2);
    return EVP_PBE_scrypt(password.data(), password.size(), stored.salt.data(), stored.salt.size(), stored.cost,
                          stored.blockSize, stored.parallel, memory, hash.data(), hash.size()) == 1;
}

} // namespace

String FtpPassword::sHash(const String& password)
{
    STORED stored{COST, BLOCK_SIZE, PARALLEL, BYTES(SALT_BYTES), {}};
    if (RAND_bytes(stored.salt.data(), static_cast<int>(stored.salt.size())) != 1 ||
        !Derive(password, stored, stored.hash))
        return {};
    const auto number = [](std::uint64_t value) { return String::sToString(static_cast<ULONG8>(value)); };
    return "scrypt$" + number(COST) + "$" + number(BLOCK_SIZE) + "$" + number(PARALLEL) + "$" + ToHex(stored.salt) +
           "$" + ToHex(stored.hash);
}

bool FtpPassword::sVerify(const String& password, const String& stored)
{
    STORED parsed;
    BYTES hash;
    if (!Parse(stored, parsed) || !Derive(password, parsed, hash))
        return false;
    return CRYPTO_memcmp(hash.data(), parsed.hash.data(), HASH_BYTES) == 0;
}

bool FtpPassword::sIsWellFormed(const String& stored)
{
    STORED parsed;
    return Parse(stored, parsed);
}

} // namespace kqlib
