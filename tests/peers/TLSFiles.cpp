#include "tests/peers/TLSFiles.h"

#include "common/BinaryStore.h"
#include "net/ssl/NetSSLCertControl.h"
#include "net/ssl/NetSSLCertCreate.h"

#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <memory>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

namespace kqlib::test {

namespace {

constexpr char PASS_PHRASE[] = "secret";
constexpr int PASS_PHRASE_LENGTH = sizeof(PASS_PHRASE) - 1;
constexpr long ONE_DAY_SECS = 86400;

using BIOHandle = std::unique_ptr<BIO, decltype(&BIO_free_all)>;
using KeyHandle = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;
using CertHandle = std::unique_ptr<X509, decltype(&X509_free)>;

BIOHandle OpenFile(const FilePath& path, const char* mode)
{
    return {BIO_new_file(path.c_str(), mode), BIO_free_all};
}

} // namespace

TLSFiles::TLSFiles(const std::string& commonName)
{
    NetSSLCertCreate create;
    create.SetName("test");
    create.SetCommonName(String(commonName));
    create.SetUnit("tests");
    create.SetOrganization("kqnet");
    create.SetEmail("tests@example.org");
    create.SetCity("City");
    create.SetState("State");
    create.SetCountry("DE");
    Messages messages;
    EXPECT_TRUE(NetSSLCertControl().CreateKeyCertificateAndSigningRequest(create, GetCert(), xPath("server.csr"),
                                                                          GetKey(), messages));
}

const TLSFiles& TLSFiles::sGet()
{
    static const TLSFiles files("localhost");
    return files;
}

FilePath TLSFiles::MakeEncryptedKey(FORM form) const
{
    const KeyHandle key(PEM_read_bio_PrivateKey(OpenFile(GetKey(), "r").get(), nullptr, nullptr, nullptr),
                        EVP_PKEY_free);
    const FilePath path = xPath(form == FORM::PKCS8 ? "pkcs8.key" : "traditional.key");
    const BIOHandle file = OpenFile(path, "w");
    if (form == FORM::PKCS8)
        EXPECT_EQ(PEM_write_bio_PKCS8PrivateKey(file.get(), key.get(), EVP_aes_256_cbc(), PASS_PHRASE,
                                                PASS_PHRASE_LENGTH, nullptr, nullptr),
                  1);
    else
        EXPECT_EQ(PEM_write_bio_PrivateKey_traditional(file.get(), key.get(), EVP_aes_256_cbc(),
                                                       reinterpret_cast<const unsigned char*>(PASS_PHRASE),
                                                       PASS_PHRASE_LENGTH, nullptr, nullptr),
                  1);
    return path;
}

FilePath TLSFiles::MakeEncryptedCert() const
{
    const CertHandle certificate(PEM_read_bio_X509(OpenFile(GetCert(), "r").get(), nullptr, nullptr, nullptr),
                                 X509_free);
    FilePath path = xPath("encrypted.crt");
    EXPECT_EQ(PEM_ASN1_write_bio(reinterpret_cast<i2d_of_void*>(i2d_X509), PEM_STRING_X509, OpenFile(path, "w").get(),
                                 certificate.get(), EVP_aes_256_cbc(),
                                 reinterpret_cast<const unsigned char*>(PASS_PHRASE), PASS_PHRASE_LENGTH, nullptr,
                                 nullptr),
              1);
    return path;
}

void TLSFiles::MakeCurvePair(FilePath& cert, FilePath& key) const
{
    cert = xPath("curve.crt");
    key = xPath("curve.key");
    const KeyHandle pair(EVP_EC_gen("P-256"), EVP_PKEY_free);
    const CertHandle certificate(X509_new(), X509_free);
    X509_gmtime_adj(X509_getm_notBefore(certificate.get()), 0);
    X509_gmtime_adj(X509_getm_notAfter(certificate.get()), ONE_DAY_SECS);
    X509_set_pubkey(certificate.get(), pair.get());
    EXPECT_GT(X509_sign(certificate.get(), pair.get(), EVP_sha256()), 0);
    EXPECT_EQ(PEM_write_bio_X509(OpenFile(cert, "w").get(), certificate.get()), 1);
    EXPECT_EQ(PEM_write_bio_PrivateKey(OpenFile(key, "w").get(), pair.get(), nullptr, nullptr, 0, nullptr, nullptr), 1);
}

FilePath TLSFiles::MakeFile(const std::string& name, const std::string& content) const
{
    std::ofstream(m_folder / name, std::ios::binary) << content;
    return xPath(name);
}

std::string TLSFiles::ReadFile(const FilePath& path) const
{
    std::ifstream file(path.c_str(), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

} // namespace kqlib::test
