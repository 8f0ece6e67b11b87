// The line ends of transfers in TYPE A. Input: the pieces that they arrive in, then the bytes.
#include "fuzz/Check.h"
#include "fuzz/Input.h"
#include "hosts/ftp/FtpAscii.h"

#include <algorithm>
#include <string>

using namespace kqlib;
using namespace kqlib::fuzz;

namespace {

std::string Replace(std::string_view text, std::string_view from, std::string_view to)
{
    std::string result;
    for (std::size_t i = 0; i < text.size();) {
        const bool isFrom = text.substr(i, from.size()) == from;
        result += isFrom ? to : text.substr(i, 1);
        i += isFrom ? from.size() : 1;
    }
    return result;
}

std::string FromWire(std::string_view wire, const std::vector<std::size_t>& pieces)
{
    FtpAscii ascii;
    std::string file;
    std::vector<unsigned char> bytes;
    for (std::size_t i = 0; !wire.empty(); ++i) {
        const std::string_view piece = wire.substr(0, pieces[i % pieces.size()]);
        wire.remove_prefix(piece.size());
        bytes.assign(piece.begin(), piece.end());
        bytes.resize(piece.size() + 1); // room for a CR of the piece before
        file.append(reinterpret_cast<const char*>(bytes.data()), ascii.FromWire(bytes.data(), piece.size()));
    }
    bytes.resize(1);
    file.append(reinterpret_cast<const char*>(bytes.data()), ascii.EndFromWire(bytes.data()));
    return file;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input input(data, size);
    const std::vector<std::size_t> pieces = input.Pieces();
    const std::string_view bytes = input.Rest();
    KQ_FUZZ_CHECK(FromWire(bytes, pieces) == Replace(bytes, "\r\n", "\n"));

    std::string wire;
    FtpAscii::sToWire(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(), wire);
    KQ_FUZZ_CHECK(wire == Replace(bytes, "\n", "\r\n"));
    KQ_FUZZ_CHECK(FromWire(wire, pieces) == bytes); // any file comes back as it was
    return 0;
}
