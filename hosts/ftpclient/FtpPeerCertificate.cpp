// FtpPeerCertificate: whether the server is the one that was meant.
#include "hosts/ftpclient/FtpPeerCertificate.h"

#include "common/NetIP.h"
#include "hosts/ftpclient/FtpClientSettings.h"

#include <algorithm>
#include <climits>
#include <memory>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509_vfy.h>
#include <openssl/x509v3.h>
#include <vector>

namespace kqlib {

namespace {

template <auto FREE> struct FREER
{
    template <class T> void operator()(T* object) const { FREE(object); }
};
using CERTIFICATE = std::unique_ptr<X509, FREER<X509_free>>;
using CERTIFICATES = std::vector<CERTIFICATE>;
using READER = std::unique_ptr<BIO, FREER<BIO_free_all>>;
using STORE = std::unique_ptr<X509_STORE, FREER<X509_STORE_free>>;
using CHECK = std::unique_ptr<X509_STORE_CTX, FREER<X509_STORE_CTX_free>>;
/// Borrows its certificates.
using STACK = std::unique_ptr<STACK_OF(X509), FREER<[](STACK_OF(X509) * stack) { sk_X509_free(stack); }>>;

/// All certificates of a PEM text; leaves the error queue as empty as it was.
CERTIFICATES ReadAll(BIO* reader)
{
    CERTIFICATES certificates;
    while (X509* const next = reader != nullptr ? PEM_read_bio_X509(reader, nullptr, nullptr, nullptr) : nullptr)
        certificates.emplace_back(next);
    ERR_clear_error(); // the end of the text is an error, too
    return certificates;
}

bool LoadTrusted(X509_STORE* store, const String& trusted)
{
    if (trusted == FtpClientSettings::SYSTEM_CERTIFICATES)
        return X509_STORE_set_default_paths(store) == 1;
    return X509_STORE_load_locations(store, trusted.c_str(), nullptr) == 1;
}

/// No host would mean any host.
bool SetHost(X509_VERIFY_PARAM* param, const String& host)
{
    if (host.empty())
        return false;
    X509_VERIFY_PARAM_set_hostflags(param, X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS);
    NetIP address;
    return address.Set(host) ? X509_VERIFY_PARAM_set1_ip_asc(param, host.c_str()) == 1
                             : X509_VERIFY_PARAM_set1_host(param, host.c_str(), host.size()) == 1;
}

/// Verifies the way from the first certificate to a trusted one, and the host.
bool Verify(const CERTIFICATES& chain, const String& trusted, const String& host, String& error)
{
    const STORE store(X509_STORE_new());
    const CHECK check(X509_STORE_CTX_new());
    const STACK others(sk_X509_new_null());
    for (const CERTIFICATE& certificate : chain)
        if (!others || sk_X509_push(others.get(), certificate.get()) == 0)
            return false;
    if (!store || !check || !LoadTrusted(store.get(), trusted) ||
        X509_STORE_CTX_init(check.get(), store.get(), chain.front().get(), others.get()) != 1 ||
        X509_STORE_CTX_set_default(check.get(), "ssl_server") != 1)
    {
        error = "the trusted certificates cannot be read";
        return false;
    }
    X509_VERIFY_PARAM* const param = X509_STORE_CTX_get0_param(check.get());
    // A trusted certificate need not be a root.
    if (!SetHost(param, host) || X509_VERIFY_PARAM_set_flags(param, X509_V_FLAG_PARTIAL_CHAIN) != 1) {
        error = "no host that a certificate could be for";
        return false;
    }
    if (X509_verify_cert(check.get()) == 1)
        return true;
    error = X509_verify_cert_error_string(X509_STORE_CTX_get_error(check.get()));
    return false;
}

} // namespace

bool FtpPeerCertificate::sIsTrusted(const String& chain, const String& trusted, const String& host, String& error)
{
    error = "the certificate cannot be read";
    const READER text(BIO_new_mem_buf(chain.data(), static_cast<int>(std::min<std::size_t>(chain.size(), INT_MAX))));
    const CERTIFICATES shown = ReadAll(text.get());
    if (shown.empty())
        return false;
    if (!(trusted == FtpClientSettings::SYSTEM_CERTIFICATES)) {
        const READER file(BIO_new_file(trusted.c_str(), "r"));
        for (const CERTIFICATE& known : ReadAll(file.get()))
            if (X509_cmp(known.get(), shown.front().get()) == 0)
                return true; // whoever has its key is the one that was meant, whatever it is called
    }
    const bool isTrusted = Verify(shown, trusted, host, error);
    ERR_clear_error();
    return isTrusted;
}

} // namespace kqlib
