// NetSSLCertControl: makes and imports the key and certificate files of a TLS service.
#pragma once

#include "common/FilePath.h"
#include "common/Messages.h"

#include <array>

namespace kqlib {

class NetSSLCertCreate;

/// Makes RSA keys, self-signed certificates and signing requests, and imports a key pair that exists already. All
/// files are PEM; paths longer than 260 bytes are cut. Files written before a failure stay, but for an import, which
/// leaves no half pair. Key files can be read by their owner alone, also where one with wider rights is written over.
///
/// Ownership: no state. Threads: any thread. Errors: false with exactly one code added: 57 an object of the TLS library
/// could not be made, or version or start of validity not be set; 60 the key cannot be generated or written; 61 the
/// certificate cannot be completed or written; 62 the signing request cannot; 63 a key cannot be read; 64 a key to
/// import is encrypted; 65 a certificate to import cannot be read; 67 key and 68 certificate refused; 70 they do not
/// belong together.
class KQNET_API NetSSLCertControl
{
public:
    /// What a failure adds to the caller's messages.
    enum MESSAGE : int
    {
        MSG_OBJECT = 57,              ///< an object of the TLS library cannot be made or begun
        MSG_KEY_WRITE = 60,           ///< the key cannot be generated or written
        MSG_CERTIFICATE = 61,         ///< the certificate cannot be completed or written
        MSG_REQUEST = 62,             ///< the signing request cannot
        MSG_KEY_READ = 63,            ///< a key cannot be read
        MSG_KEY_ENCRYPTED = 64,       ///< a key to import has a pass phrase
        MSG_CERTIFICATE_READ = 65,    ///< a certificate to import cannot be read
        MSG_KEY_REFUSED = 67,         ///< TLS cannot use a key of this kind
        MSG_CERTIFICATE_REFUSED = 68, ///< TLS cannot use the certificate
        MSG_MISMATCH = 70             ///< the key is not that of the certificate
    };

    /// Bytes that one sSeed mixes in.
    static constexpr ULONG SEED_BLOCK_SIZE = 2344;

    /// There is nothing to set up or to clean up.
    ///@{
    NetSSLCertControl();
    virtual ~NetSSLCertControl();
    ///@}

    /// ".crt", ".key" and ".csr": what such files are called.
    ///@{
    static const FilePath& sExtCertificate();
    static const FilePath& sExtPrivateKey();
    static const FilePath& sExtSigningRequest();
    ///@}

    /// Writes a new RSA key of that many bits, exponent 65537, as an unencrypted "RSA PRIVATE KEY". Below 512 bits: 60,
    /// and the file is left empty. Large keys take minutes.
    bool MakePrivateKey(const FilePath& keyFile, unsigned long bits, Messages& messages) const;

    /// Reads the key, writes the request, then the certificate: version value 2, serial 0, no extensions, SHA-1
    /// signature, subject and issuer C, ST, L, emailAddress, O, OU, CN, valid from now to the expiry asked for. All of
    /// this is kept on purpose. An expiry more than 2^31 - 1 seconds (68 years) from now gives 61. Each field is cut to
    /// 99 characters; a field that the TLS library then refuses (empty, too long for its kind, a country not of two
    /// letters) gives 62.
    bool MakeCertificateAndSigningRequest(const NetSSLCertCreate& create, const FilePath& certFile,
                                          const FilePath& requestFile, const FilePath& keyFile,
                                          Messages& messages) const;

    /// The two above, the second only if the first succeeded.
    bool CreateKeyCertificateAndSigningRequest(const NetSSLCertCreate& create, const FilePath& certFile,
                                               const FilePath& requestFile, const FilePath& keyFile,
                                               Messages& messages) const;

    /// Checks that the pair belongs together and writes it anew, the key as an unencrypted "PRIVATE KEY". A key with a
    /// pass phrase is refused (64, or 63 in its other form), never asked for. 67: a kind of key that TLS cannot use;
    /// 70: any other key that is not the certificate's.
    bool ImportKeyAndCertificate(const FilePath& sourceCert, const FilePath& sourceKey, const FilePath& certFile,
                                 const FilePath& keyFile, Messages& messages) const;

    /// The checks of an import alone, with its codes; writes nothing.
    bool CheckKeyAndCertificate(const FilePath& sourceCert, const FilePath& sourceKey, Messages& messages) const;

    /// Mixes machine state and the caller's bytes (the first 1560) into the random generator. data may be null when
    /// size is 0.
    static void sSeed(const unsigned char* data, unsigned long size);

protected:
    /// Shows the progress of a key generation: writes ".", "+", "*" or a line feed for the stages 0 to 3, "*" for any
    /// other, to the BIO at arg and flushes it. Null: nothing.
    static void xCallback(int stage, int count, void* arg);

    /// What sSeed mixes in.
    using SEED_BLOCK = std::array<unsigned char, SEED_BLOCK_SIZE>;
    /// Lays out what sSeed mixes in. Bytes that no field covers are zero.
    static void xsBuildSeedBlock(const unsigned char* data, unsigned long size, SEED_BLOCK& block);
};

} // namespace kqlib
