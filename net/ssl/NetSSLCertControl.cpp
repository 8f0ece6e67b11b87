#include "net/ssl/NetSSLCertControl.h"

#include "common/FileAccess.h"
#include "common/FileAccessBuf.h"
#include "common/TimePos.h"
#include "common/TimedEvent.h"
#include "net/sockets/OpenSSLHandles.h"
#include "net/ssl/NetSSLCertCreate.h"
#include "platform/Clock.h"
#include "platform/MachineState.h"
#include "platform/Threads.h"

#include <algorithm>
#include <cstring>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <optional>

namespace kqlib {

// What users of the DLL link to when they need its address.
constexpr ULONG NetSSLCertControl::SEED_BLOCK_SIZE;

namespace {

constexpr ULONG PATH_BUFFER_SIZE = 261;
constexpr ULONG FIELD_BUFFER_SIZE = 100;
constexpr long VERSION_VALUE = 2;
constexpr const char* ENCRYPTED_KEY_MARK = "DEK-Info:";

/// The path as OpenSSL gets it: cut to what the buffer holds.
class NarrowPath
{
public:
    explicit NarrowPath(const FilePath& path) { String::sCpystr(m_text, path.GetText(), sizeof m_text); }
    const char* c_str() const { return m_text; }

private:
    char m_text[PATH_BUFFER_SIZE] = {};
};

/// One code and false: the shape of every failure here.
bool Fail(Messages& messages, NetSSLCertControl::MESSAGE code)
{
    messages.AddMessage(code);
    return false;
}

BIOHandle NewFileBIO()
{
    return BIOHandle(BIO_new(BIO_s_file()));
}

bool OpenForReading(BIO* bio, const FilePath& path)
{
    return BIO_ctrl(bio, BIO_C_SET_FILENAME, BIO_CLOSE | BIO_FP_READ, const_cast<char*>(NarrowPath(path).c_str())) > 0;
}

bool OpenForWriting(BIO* bio, const FilePath& path)
{
    return BIO_ctrl(bio, BIO_C_SET_FILENAME, BIO_CLOSE | BIO_FP_WRITE, const_cast<char*>(NarrowPath(path).c_str())) > 0;
}

/// As OpenForWriting; before, the file is made for its owner alone, or taken from all others.
bool OpenForWritingKey(BIO* bio, const FilePath& path)
{
    FileAccess file;
    if (!file.OpenOwnerOnly(NarrowPath(path).c_str(), FileAccess::AM_WRITE, true, true))
        return false;
    file.Close();
    return OpenForWriting(bio, path);
}

/// What was written is in the file when this is true; a full disk shows here at the latest.
bool Flush(BIO* bio)
{
    return BIO_flush(bio) > 0;
}

KeyHandle ReadPrivateKey(const FilePath& path)
{
    const BIOHandle bio = NewFileBIO();
    if (!bio || !OpenForReading(bio.get(), path))
        return nullptr;
    return KeyHandle(PEM_read_bio_PrivateKey(bio.get(), nullptr, RefusePassPhrase, nullptr));
}

bool AddNameField(X509_NAME* name, int nid, const String& field)
{
    unsigned char text[FIELD_BUFFER_SIZE] = {};
    String::sCpystr(reinterpret_cast<char*>(text), field, sizeof text);
    return X509_NAME_add_entry_by_NID(name, nid, MBSTRING_ASC, text, -1, -1, 0) == 1;
}

bool FillName(X509_NAME* name, const NetSSLCertCreate& create)
{
    return AddNameField(name, NID_countryName, create.GetCountry()) &&
           AddNameField(name, NID_stateOrProvinceName, create.GetState()) &&
           AddNameField(name, NID_localityName, create.GetCity()) &&
           AddNameField(name, NID_pkcs9_emailAddress, create.GetEmail()) &&
           AddNameField(name, NID_organizationName, create.GetOrganization()) &&
           AddNameField(name, NID_organizationalUnitName, create.GetUnit()) &&
           AddNameField(name, NID_commonName, create.GetCommonName());
}

/// Makes and writes the request; returns its subject name, null on any failure.
NameHandle MakeRequest(const NetSSLCertCreate& create, EVP_PKEY* key, const FilePath& requestFile)
{
    const RequestHandle request(X509_REQ_new());
    if (!request || X509_REQ_set_pubkey(request.get(), key) != 1)
        return nullptr;
    NameHandle name(X509_NAME_dup(X509_REQ_get_subject_name(request.get())));
    if (!name || !FillName(name.get(), create) || X509_REQ_set_subject_name(request.get(), name.get()) != 1 ||
        X509_REQ_sign(request.get(), key, EVP_sha1()) <= 0)
        return nullptr;
    const BIOHandle bio = NewFileBIO();
    if (!bio || !OpenForWriting(bio.get(), requestFile) || PEM_write_bio_X509_REQ(bio.get(), request.get()) != 1 ||
        !Flush(bio.get()))
        return nullptr;
    return name;
}

/// Everything of the certificate after its start of validity, and the file.
bool CompleteCertificate(X509* certificate, const X509_NAME* name, EVP_PKEY* key, ULONG8 validSeconds,
                         const FilePath& certFile)
{
    // A signed 32-bit count on every system: an expiry more than about 68 years ahead does not fit.
    if (validSeconds > INT32_MAX ||
        X509_gmtime_adj(X509_getm_notAfter(certificate), static_cast<long>(validSeconds)) == nullptr ||
        // Every certificate made here has serial 0; kept on purpose.
        ASN1_INTEGER_set(X509_get_serialNumber(certificate), 0) != 1 || X509_set_pubkey(certificate, key) != 1 ||
        X509_set_subject_name(certificate, name) != 1 || X509_set_issuer_name(certificate, name) != 1 ||
        X509_sign(certificate, key, EVP_sha1()) <= 0)
        return false;
    const BIOHandle bio = NewFileBIO();
    return bio && OpenForWriting(bio.get(), certFile) && PEM_write_bio_X509(bio.get(), certificate) == 1 &&
           Flush(bio.get());
}

/// False when the file cannot be opened. encrypted: a line of it names a cipher.
bool LookForEncryption(const FilePath& keyFile, bool& encrypted)
{
    FileAccessBuf file;
    if (!file.Open(keyFile, FileAccess::AM_READ, false))
        return false;
    encrypted = false;
    for (String line; !encrypted && file.ReadLine(line);)
        encrypted = line.FindI(ENCRYPTED_KEY_MARK) != String::npos;
    return true;
}

/// Whether a TLS service could use a key of this kind at all.
bool IsKeyUsable(EVP_PKEY* key)
{
    const SSLContextHandle context(SSL_CTX_new(TLS_server_method()));
    return context && SSL_CTX_use_PrivateKey(context.get(), key) == 1;
}

/// Nothing when the pair can serve, else the code.
std::optional<NetSSLCertControl::MESSAGE> CheckPair(X509* certificate, EVP_PKEY* key)
{
    const SSLContextHandle context(SSL_CTX_new(TLS_server_method()));
    if (!context)
        return NetSSLCertControl::MSG_OBJECT;
    if (SSL_CTX_use_certificate(context.get(), certificate) != 1)
        return NetSSLCertControl::MSG_CERTIFICATE_REFUSED;
    // With a certificate in place OpenSSL refuses a key of another pair here already; that is a mismatch, not a bad
    // key.
    if (SSL_CTX_use_PrivateKey(context.get(), key) != 1)
        return IsKeyUsable(key) ? NetSSLCertControl::MSG_MISMATCH : NetSSLCertControl::MSG_KEY_REFUSED;
    if (SSL_CTX_check_private_key(context.get()) != 1)
        return NetSSLCertControl::MSG_MISMATCH;
    return std::nullopt;
}

struct PAIR
{
    CertificateHandle certificate;
    KeyHandle key;
};

/// Reads a pair and finds that it can serve, or fails with the code of what is wrong.
bool ReadPair(const FilePath& certFile, const FilePath& keyFile, PAIR& pair, Messages& messages)
{
    // 1. The certificate.
    const BIOHandle bio = NewFileBIO();
    if (!bio)
        return Fail(messages, NetSSLCertControl::MSG_OBJECT);
    if (OpenForReading(bio.get(), certFile))
        pair.certificate.reset(PEM_read_bio_X509(bio.get(), nullptr, RefusePassPhrase, nullptr));
    if (!pair.certificate)
        return Fail(messages, NetSSLCertControl::MSG_CERTIFICATE_READ);
    // 2. The key, refused when encrypted before OpenSSL sees it.
    bool encrypted = false;
    if (!LookForEncryption(keyFile, encrypted))
        return Fail(messages, NetSSLCertControl::MSG_KEY_READ);
    if (encrypted)
        return Fail(messages, NetSSLCertControl::MSG_KEY_ENCRYPTED);
    pair.key = ReadPrivateKey(keyFile);
    if (!pair.key)
        return Fail(messages, NetSSLCertControl::MSG_KEY_READ);
    // 3. Whether they belong together.
    if (const auto code = CheckPair(pair.certificate.get(), pair.key.get()))
        return Fail(messages, *code);
    return true;
}

} // namespace

NetSSLCertControl::NetSSLCertControl() = default;

NetSSLCertControl::~NetSSLCertControl() = default;

const FilePath& NetSSLCertControl::sExtCertificate()
{
    static const FilePath extension(".crt");
    return extension;
}

const FilePath& NetSSLCertControl::sExtPrivateKey()
{
    static const FilePath extension(".key");
    return extension;
}

const FilePath& NetSSLCertControl::sExtSigningRequest()
{
    static const FilePath extension(".csr");
    return extension;
}

bool NetSSLCertControl::MakePrivateKey(const FilePath& keyFile, unsigned long bits, Messages& messages) const
{
    const OpenSSLErrorGuard errors;
    const BIOHandle bio = NewFileBIO();
    if (!bio)
        return Fail(messages, MSG_OBJECT);
    if (!OpenForWritingKey(bio.get(), keyFile))
        return Fail(messages, MSG_KEY_WRITE);

    // RSA with the default exponent, 65537.
    const KeyContextHandle context(EVP_PKEY_CTX_new_id(EVP_PKEY_RSA, nullptr));
    EVP_PKEY* made = nullptr;
    if (!context || bits > INT32_MAX || EVP_PKEY_keygen_init(context.get()) != 1 ||
        EVP_PKEY_CTX_set_rsa_keygen_bits(context.get(), static_cast<int>(bits)) != 1)
        return Fail(messages, MSG_KEY_WRITE);
    EVP_PKEY_CTX_set_app_data(context.get(), nullptr);
    EVP_PKEY_CTX_set_cb(context.get(), [](EVP_PKEY_CTX* running) {
        xCallback(EVP_PKEY_CTX_get_keygen_info(running, 0), EVP_PKEY_CTX_get_keygen_info(running, 1),
                  EVP_PKEY_CTX_get_app_data(running));
        return 1;
    });
    const bool generated = EVP_PKEY_keygen(context.get(), &made) == 1;
    const KeyHandle key(made);
    if (!generated ||
        PEM_write_bio_PrivateKey_traditional(bio.get(), key.get(), nullptr, nullptr, 0, nullptr, nullptr) != 1 ||
        !Flush(bio.get()))
        return Fail(messages, MSG_KEY_WRITE);
    return true;
}

bool NetSSLCertControl::MakeCertificateAndSigningRequest(const NetSSLCertCreate& create, const FilePath& certFile,
                                                         const FilePath& requestFile, const FilePath& keyFile,
                                                         Messages& messages) const
{
    const OpenSSLErrorGuard errors;
    const TimePos start = TimePos::sNow();
    const KeyHandle key = ReadPrivateKey(keyFile);
    if (!key)
        return Fail(messages, MSG_KEY_READ);
    const NameHandle name = MakeRequest(create, key.get(), requestFile);
    if (!name)
        return Fail(messages, MSG_REQUEST);
    const CertificateHandle certificate(X509_new());
    if (!certificate || X509_set_version(certificate.get(), VERSION_VALUE) != 1 ||
        X509_gmtime_adj(X509_getm_notBefore(certificate.get()), 0) == nullptr)
        return Fail(messages, MSG_OBJECT);
    const ULONG8 validSeconds = start.GetSecondsBetween(create.GetExpire());
    if (!CompleteCertificate(certificate.get(), name.get(), key.get(), validSeconds, certFile))
        return Fail(messages, MSG_CERTIFICATE);
    return true;
}

bool NetSSLCertControl::CreateKeyCertificateAndSigningRequest(const NetSSLCertCreate& create, const FilePath& certFile,
                                                              const FilePath& requestFile, const FilePath& keyFile,
                                                              Messages& messages) const
{
    return MakePrivateKey(keyFile, create.GetBits(), messages) &&
           MakeCertificateAndSigningRequest(create, certFile, requestFile, keyFile, messages);
}

bool NetSSLCertControl::CheckKeyAndCertificate(const FilePath& sourceCert, const FilePath& sourceKey,
                                               Messages& messages) const
{
    const OpenSSLErrorGuard errors;
    PAIR pair;
    return ReadPair(sourceCert, sourceKey, pair, messages);
}

bool NetSSLCertControl::ImportKeyAndCertificate(const FilePath& sourceCert, const FilePath& sourceKey,
                                                const FilePath& certFile, const FilePath& keyFile,
                                                Messages& messages) const
{
    const OpenSSLErrorGuard errors;
    PAIR pair;
    if (!ReadPair(sourceCert, sourceKey, pair, messages))
        return false;
    BIOHandle bio = NewFileBIO();
    if (!bio || !OpenForWriting(bio.get(), certFile) || PEM_write_bio_X509(bio.get(), pair.certificate.get()) != 1 ||
        !Flush(bio.get()))
        return Fail(messages, MSG_CERTIFICATE);
    bio = NewFileBIO();
    if (bio && OpenForWritingKey(bio.get(), keyFile) &&
        PEM_write_bio_PrivateKey(bio.get(), pair.key.get(), nullptr, nullptr, 0, nullptr, nullptr) == 1 &&
        Flush(bio.get()))
        return true;
    // No half pair is left; should the deletion fail too, the code below still tells.
    FileAccess::sDelete(NarrowPath(certFile).c_str());
    return Fail(messages, MSG_KEY_WRITE);
}

void NetSSLCertControl::xCallback(int stage, int, void* arg)
{
    if (arg == nullptr)
        return;
    static constexpr char MARKS[] = {'.', '+', '*', '\n'};
    const char mark = stage >= 0 && stage < 4 ? MARKS[stage] : '*';
    auto* bio = static_cast<BIO*>(arg);
    BIO_write(bio, &mark, 1);
    BIO_ctrl(bio, BIO_CTRL_FLUSH, 0, nullptr);
}

void NetSSLCertControl::sSeed(const unsigned char* data, unsigned long size)
{
    const OpenSSLErrorGuard errors;
    SEED_BLOCK block;
    xsBuildSeedBlock(data, size, block);
    RAND_seed(block.data(), static_cast<int>(block.size()));
    OPENSSL_cleanse(block.data(), block.size());
}

void NetSSLCertControl::xsBuildSeedBlock(const unsigned char* data, unsigned long size, SEED_BLOCK& block)
{
    constexpr std::size_t AREA_OFFSET = 264;
    constexpr std::size_t AREA_SIZE = 1560;
    block.fill(0);
    const auto put = [&block](std::size_t offset, const void* bytes, std::size_t count) {
        std::memcpy(block.data() + offset, bytes, count);
    };
    platform::MachineState state;
    platform::ReadMachineState(state);
    const auto tick = static_cast<std::uint32_t>(TimedEvent::sGetNow());
    const std::int64_t seconds = TimePos::sNow().GetMilliSeconds() / 1000;

    put(0, &tick, 4);
    put(4, state.systemInfo, 36);
    put(40, &seconds, 8);
    put(48, state.localTime, 16);
    // The word that is added here comes from bytes that nothing writes, so it is zero.
    platform::RandSeed(static_cast<std::uint32_t>(seconds));
    for (std::size_t index = 0; index < AREA_SIZE; ++index)
        block[AREA_OFFSET + index] = static_cast<unsigned char>(platform::RandNext());
    if (data != nullptr)
        put(AREA_OFFSET, data, std::min<std::size_t>(size, AREA_SIZE));
    put(1824, state.userName, 257);
    put(2081, state.computerName, 16);
    put(2100, state.timeZone, 172);
    put(2272, &state.processId, 4);
    put(2276, &state.threadId, 4);
    put(2280, state.memory, 32);
    put(2312, &state.diskFreeForCaller, 8);
    put(2320, &state.diskTotal, 8);
    put(2328, &state.diskFree, 8);
    put(2336, &state.volumes, 4);
}

} // namespace kqlib
