// Owning handles of OpenSSL objects, freed on every path. Inside the library only.
#pragma once

#include <memory>
#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>

namespace kqlib {

/// Calls one of OpenSSL's free functions.
template <auto FREE> struct OpenSSLFree
{
    /// object: not null, as std::unique_ptr sees to.
    template <class T> void operator()(T* object) const { FREE(object); }
};

/// Each owns one object, which may be null. A chain of BIOs is freed whole.
///@{
using BIOHandle = std::unique_ptr<BIO, OpenSSLFree<BIO_free_all>>;
using KeyHandle = std::unique_ptr<EVP_PKEY, OpenSSLFree<EVP_PKEY_free>>;
using KeyContextHandle = std::unique_ptr<EVP_PKEY_CTX, OpenSSLFree<EVP_PKEY_CTX_free>>;
using CertificateHandle = std::unique_ptr<X509, OpenSSLFree<X509_free>>;
using RequestHandle = std::unique_ptr<X509_REQ, OpenSSLFree<X509_REQ_free>>;
using NameHandle = std::unique_ptr<X509_NAME, OpenSSLFree<X509_NAME_free>>;
using SSLContextHandle = std::unique_ptr<SSL_CTX, OpenSSLFree<SSL_CTX_free>>;
///@}

/// Empties the thread's error queue on leaving a scope, so that no later TLS call reads a stale error.
class OpenSSLErrorGuard
{
public:
    /// Does not empty the queue: what stood there before stays until the end.
    OpenSSLErrorGuard() = default;
    /// On the thread whose queue it is.
    ~OpenSSLErrorGuard()
    {
        if (ERR_peek_error() != 0) // asking costs less than emptying, and mostly there is nothing
            ERR_clear_error();
    }
    OpenSSLErrorGuard(const OpenSSLErrorGuard&) = delete;
    OpenSSLErrorGuard& operator=(const OpenSSLErrorGuard&) = delete;
};

/// The answer to every question for a pass phrase: none, so that nothing is ever asked on a terminal.
inline int RefusePassPhrase(char*, int, int, void*)
{
    return -1;
}

} // namespace kqlib
