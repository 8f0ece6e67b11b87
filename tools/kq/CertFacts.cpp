#include "tools/kq/CertFacts.h"

#include "net/sockets/OpenSSLHandles.h"

#include <cstddef>
#include <openssl/asn1.h>
#include <openssl/bn.h>
#include <openssl/objects.h>
#include <openssl/pem.h>

namespace kq {

using namespace kqlib;

namespace {

/// What a printing function of OpenSSL puts into a BIO.
template <class PRINT> std::string Printed(PRINT print)
{
    const BIOHandle bio(BIO_new(BIO_s_mem()));
    if (!bio || print(bio.get()) < 0)
        return "(cannot be shown)";
    const char* text = nullptr;
    const long length = BIO_get_mem_data(bio.get(), &text);
    return std::string(text, static_cast<std::size_t>(length));
}

std::string NameText(const X509_NAME* name)
{
    // This form escapes control characters.
    return Printed([name](BIO* bio) { return X509_NAME_print_ex(bio, name, 0, XN_FLAG_ONELINE); });
}

std::string TimeText(const ASN1_TIME* time)
{
    return Printed([time](BIO* bio) { return ASN1_TIME_print_ex(bio, time, ASN1_DTFLGS_ISO8601); });
}

std::string SerialText(const ASN1_INTEGER* serial)
{
    const std::unique_ptr<BIGNUM, OpenSSLFree<BN_free>> number(ASN1_INTEGER_to_BN(serial, nullptr));
    return Printed([&number](BIO* bio) { return number ? BN_print(bio, number.get()) : -1; });
}

std::string KeyText(const EVP_PKEY* key)
{
    if (key == nullptr)
        return "(unknown kind)";
    const char* const kind = EVP_PKEY_get0_type_name(key);
    return std::string(kind != nullptr ? kind : "unknown kind") + ", " + std::to_string(EVP_PKEY_get_bits(key)) +
           " bits";
}

std::string SignatureText(int nid)
{
    return nid == NID_undef ? "(unknown)" : OBJ_nid2ln(nid);
}

std::string FingerprintText(const X509* certificate, const EVP_MD* method)
{
    static constexpr char DIGITS[] = "0123456789ABCDEF";
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned length = 0;
    if (X509_digest(certificate, method, digest, &length) != 1)
        return "(cannot be shown)";
    std::string text;
    for (unsigned i = 0; i < length; ++i) {
        if (i > 0)
            text += ':';
        text += DIGITS[digest[i] >> 4];
        text += DIGITS[digest[i] & 0xF];
    }
    return text;
}

/// The end of validity and whether it is over.
std::string UntilText(const X509* certificate)
{
    const std::string until = TimeText(X509_get0_notAfter(certificate));
    return X509_cmp_current_time(X509_get0_notAfter(certificate)) < 0 ? until + " (expired)" : until;
}

void AddCertificate(X509* certificate, CERTFACTS& facts)
{
    facts = {{"Kind", "certificate"},
             {"Subject", NameText(X509_get_subject_name(certificate))},
             {"Issuer", NameText(X509_get_issuer_name(certificate))},
             {"Valid from", TimeText(X509_get0_notBefore(certificate))},
             {"Valid until", UntilText(certificate)},
             {"Version", std::to_string(X509_get_version(certificate) + 1)},
             {"Serial", SerialText(X509_get0_serialNumber(certificate))},
             {"Key", KeyText(X509_get0_pubkey(certificate))},
             {"Signature", SignatureText(X509_get_signature_nid(certificate))},
             {"SHA-1", FingerprintText(certificate, EVP_sha1())},
             {"SHA-256", FingerprintText(certificate, EVP_sha256())}};
}

void AddRequest(X509_REQ* request, CERTFACTS& facts)
{
    EVP_PKEY* const key = X509_REQ_get0_pubkey(request);
    const bool verified = key != nullptr && X509_REQ_verify(request, key) == 1;
    facts = {
        {"Kind", "signing request"},
        {"Subject", NameText(X509_REQ_get_subject_name(request))},
        {"Key", KeyText(key)},
        {"Signature", SignatureText(X509_REQ_get_signature_nid(request)) + (verified ? ", is right" : ", is wrong")}};
}

} // namespace

bool ReadCertFacts(const std::string& path, CERTFACTS& facts)
{
    const OpenSSLErrorGuard errors;
    facts.clear();
    const BIOHandle bio(BIO_new_file(path.c_str(), "r"));
    if (!bio)
        return false;
    if (const CertificateHandle certificate{PEM_read_bio_X509(bio.get(), nullptr, RefusePassPhrase, nullptr)}) {
        AddCertificate(certificate.get(), facts);
        return true;
    }
    if (BIO_reset(bio.get()) != 0)
        return false;
    const RequestHandle request(PEM_read_bio_X509_REQ(bio.get(), nullptr, RefusePassPhrase, nullptr));
    if (!request)
        return false;
    AddRequest(request.get(), facts);
    return true;
}

} // namespace kq
