#include "tests/net/sockets/tls/posix/OpenSSLCalls.h"

#include <atomic>
#include <cstring>
#include <dlfcn.h>
#include <openssl/bio.h>
#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <utility>

namespace kqlib::test {

namespace {

std::function<void(const unsigned char*, std::size_t)> g_onCleanse;
std::atomic<int> g_failMethods{0};
std::atomic<int> g_methodCount{0};
std::atomic<int> g_failingWrite{0}; ///< counted down to 1 by the writes that pass; 0: none fails

/// The function of that name behind this program's own.
template <class FUNCTION> FUNCTION* Next(FUNCTION* /*own*/, const char* name)
{
    return reinterpret_cast<FUNCTION*>(dlsym(RTLD_NEXT, name));
}

} // namespace

void OpenSSLCalls::sSetOnCleanse(std::function<void(const unsigned char* bytes, std::size_t size)> onCleanse)
{
    g_onCleanse = std::move(onCleanse);
}

void OpenSSLCalls::sFailMethods(int times)
{
    g_failMethods = times;
}

void OpenSSLCalls::sFailWriteAfter(int others)
{
    g_failingWrite = others + 1;
}

int OpenSSLCalls::sGetMethodCount()
{
    return g_methodCount;
}

} // namespace kqlib::test

// Visible to the libraries of the program, whose calls they take.
#pragma GCC visibility push(default)
extern "C" {

void OPENSSL_cleanse(void* bytes, size_t size)
{
    static const auto next = kqlib::test::Next(&OPENSSL_cleanse, "OPENSSL_cleanse");
    if (kqlib::test::g_onCleanse)
        kqlib::test::g_onCleanse(static_cast<const unsigned char*>(bytes), size);
    next(bytes, size);
}

BIO_METHOD* BIO_meth_new(int type, const char* name)
{
    static const auto next = kqlib::test::Next(&BIO_meth_new, "BIO_meth_new");
    if (std::strcmp(name, "kqnet socket") != 0) // one of OpenSSL's own
        return next(type, name);
    ++kqlib::test::g_methodCount;
    return kqlib::test::g_failMethods > 0 && kqlib::test::g_failMethods-- > 0 ? nullptr : next(type, name);
}

int SSL_write(SSL* connection, const void* bytes, int size)
{
    static const auto next = kqlib::test::Next(&SSL_write, "SSL_write");
    if (kqlib::test::g_failingWrite > 0 && --kqlib::test::g_failingWrite == 0) {
        ERR_raise(ERR_LIB_USER, 1);
        return -1;
    }
    return next(connection, bytes, size);
}
}
#pragma GCC visibility pop
