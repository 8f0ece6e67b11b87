// The check and the import of a certificate and its key. Input: the size of the certificate's file in two bytes, its
// bytes, then those of the key's file.
#include "fuzz/Check.h"
#include "fuzz/Input.h"
#include "net/sockets/NetTCPSSL.h"
#include "net/ssl/NetSSLCertControl.h"
#include "tests/peers/TempFolder.h"

#include <fstream>
#include <string>

using namespace kqlib;
using namespace kqlib::fuzz;

namespace {

using CODES = std::vector<int>;

struct FILES
{
    FILES() { NetTCPSSL::sStartSSL(); }

    FilePath Get(const std::string& name) const { return FilePath((folder / name).string().c_str()); }
    bool Exists(const std::string& name) const { return std::filesystem::exists(folder / name); }

    test::TempFolder folder;
};

void WriteFile(const std::filesystem::path& path, std::string_view bytes)
{
    std::ofstream file(path, std::ios::binary);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

CODES CodesOf(const Messages& messages)
{
    CODES codes;
    for (ULONG i = 0; i < messages.GetMessageCount(); ++i)
        codes.push_back(messages.Get(i));
    return codes;
}

bool IsReadingCode(int code)
{
    return code == NetSSLCertControl::MSG_KEY_READ || code == NetSSLCertControl::MSG_KEY_ENCRYPTED ||
           code == NetSSLCertControl::MSG_CERTIFICATE_READ || code == NetSSLCertControl::MSG_KEY_REFUSED ||
           code == NetSSLCertControl::MSG_CERTIFICATE_REFUSED || code == NetSSLCertControl::MSG_MISMATCH;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const FILES files;
    Input input(data, size);
    const std::size_t high = input.Byte();
    const std::size_t low = input.Byte();
    const std::string_view certificate = input.Rest().substr(0, high * 256 + low);
    const std::string_view key = input.Rest().substr(certificate.size());
    WriteFile(files.folder / "in.crt", certificate);
    WriteFile(files.folder / "in.key", key);

    const NetSSLCertControl control;
    Messages checked;
    const bool good = control.CheckKeyAndCertificate(files.Get("in.crt"), files.Get("in.key"), checked);
    Messages imported;
    const bool done = control.ImportKeyAndCertificate(files.Get("in.crt"), files.Get("in.key"), files.Get("out.crt"),
                                                      files.Get("out.key"), imported);
    KQ_FUZZ_CHECK(done == good);
    KQ_FUZZ_CHECK(CodesOf(imported) == CodesOf(checked));
    if (!good) {
        // One reason, and nothing was written.
        KQ_FUZZ_CHECK(checked.GetMessageCount() == 1 && IsReadingCode(checked.Get(0)));
        KQ_FUZZ_CHECK(!files.Exists("out.crt") && !files.Exists("out.key"));
        return 0;
    }
    // What was written is a pair, too.
    KQ_FUZZ_CHECK(checked.GetMessageCount() == 0);
    KQ_FUZZ_CHECK(control.CheckKeyAndCertificate(files.Get("out.crt"), files.Get("out.key"), checked));
    std::filesystem::remove(files.folder / "out.crt");
    std::filesystem::remove(files.folder / "out.key");
    return 0;
}
