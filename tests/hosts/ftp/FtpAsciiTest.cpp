// Tests of the line ends of TYPE A.
#include "hosts/ftp/FtpAscii.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace kqlib {
namespace {

std::string ToWire(const std::string& file)
{
    std::string wire;
    FtpAscii::sToWire(reinterpret_cast<const unsigned char*>(file.data()), file.size(), wire);
    return wire;
}

/// Receives wire in pieces of the given size.
std::string FromWire(const std::string& wire, std::size_t piece)
{
    FtpAscii ascii;
    std::string file;
    std::vector<unsigned char> buffer(piece + 1);
    for (std::size_t i = 0; i < wire.size(); i += piece) {
        const std::string part = wire.substr(i, piece);
        std::copy(part.begin(), part.end(), buffer.begin());
        const std::size_t size = ascii.FromWire(buffer.data(), part.size());
        file.append(reinterpret_cast<const char*>(buffer.data()), size);
    }
    file.append(reinterpret_cast<const char*>(buffer.data()), ascii.EndFromWire(buffer.data()));
    return file;
}

TEST(FtpAscii, ToWire_LineEnds_BecomeCRLF)
{
    EXPECT_EQ(ToWire(""), "");
    EXPECT_EQ(ToWire("a"), "a");
    EXPECT_EQ(ToWire("a\nb\n"), "a\r\nb\r\n");
    EXPECT_EQ(ToWire("\n\n"), "\r\n\r\n");
    EXPECT_EQ(ToWire("a\r\n"), "a\r\r\n");
}

TEST(FtpAscii, FromWire_CRLF_BecomesLFAndOtherCRStay)
{
    EXPECT_EQ(FromWire("a\r\nb\r\n", 100), "a\nb\n");
    EXPECT_EQ(FromWire("a\rb", 100), "a\rb");
    EXPECT_EQ(FromWire("a\nb", 100), "a\nb");
    EXPECT_EQ(FromWire("\r\r\n\r", 100), "\r\n\r");
}

TEST(FtpAscii, FromWire_AnySplit_SameResult)
{
    const std::string wire = "\r\r\nab\r\n\rc\n\n\r\n\r";
    const std::string whole = FromWire(wire, 100);
    for (std::size_t piece = 1; piece < wire.size(); ++piece)
        EXPECT_EQ(FromWire(wire, piece), whole) << piece;
}

TEST(FtpAscii, ToWireAndBack_AnyBytes_Unchanged)
{
    std::string bytes;
    for (int round = 0; round < 3; ++round)
        for (int value = 0; value < 256; ++value)
            bytes += static_cast<char>(value * (round + 1));
    bytes += "\r\n\r\r\n\n\r";
    EXPECT_EQ(FromWire(ToWire(bytes), 7), bytes);
}

} // namespace
} // namespace kqlib
