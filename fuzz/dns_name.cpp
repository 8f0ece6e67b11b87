// Decoding of a compressed name. Input: two bytes offset, then the message.
#include "fuzz/Check.h"
#include "net/dns/NetDNSReader.h"

#include <cstddef>
#include <cstdint>

using namespace kqlib;

namespace {

/// 200 runs of at most a whole message each, with their dots.
constexpr std::size_t NAME_BOUND_FACTOR = 2 * 200;

constexpr std::size_t LONGEST_STRICT_NAME = 253;

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    NetDNSReader input(data, static_cast<ULONG>(size));
    std::uint16_t offset = 0;
    if (!input.Read16(offset))
        return 0;
    NetDNSReader reader(data + 2, static_cast<ULONG>(size - 2));
    if (!reader.Seek(offset))
        return 0;
    String name;
    if (reader.ReadName(name)) {
        KQ_FUZZ_CHECK(name.size() <= NetDNSReader::LONGEST_NAME);
        KQ_FUZZ_CHECK(reader.GetPosition() >= offset + 2UL);
        KQ_FUZZ_CHECK(reader.GetPosition() <= reader.GetLength());
    }
    KQ_FUZZ_CHECK(name.size() <= NAME_BOUND_FACTOR * size);
    String strict;
    if (reader.Seek(offset) && reader.ReadStrictName(strict)) {
        KQ_FUZZ_CHECK(strict.size() <= LONGEST_STRICT_NAME);
        KQ_FUZZ_CHECK(reader.GetPosition() > offset && reader.GetPosition() <= reader.GetLength());
    }
    return 0;
}
