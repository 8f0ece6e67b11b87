// The header of a web server's answer and the place that a redirect names. Input: the answer.
#include "fuzz/Check.h"
#include "fuzz/UpdateReader.h"

#include <memory>

using namespace kqlib;
using namespace kqlib::fuzz;

namespace {

constexpr std::size_t MAX_LINE = 2048;

struct OUTCOME
{
    bool success = false;
    bool redirect = false;
    String location;
    ULONG amount = 0;

    friend bool operator==(const OUTCOME&, const OUTCOME&) = default;
};

OUTCOME Read(const std::uint8_t* data, std::size_t size, std::size_t pieceSize)
{
    ThreadPool pool;
    UpdateReader reader(pool);
    MemorySocket<NetTCP> socket(std::string_view(reinterpret_cast<const char*>(data), size), {pieceSize});
    const auto buffer = std::make_unique<UpdateReader::RECVBUF>();
    UpdateReader::xPrepareBuffer(socket, *buffer);
    OUTCOME outcome;
    outcome.success = reader.xReceiveHeader(socket, *buffer, outcome.redirect, outcome.location);
    outcome.amount = reader.GetMaxReceivingAmount();
    return outcome;
}

void CheckPlace(const String& location)
{
    String host = "before";
    USHORT port = 1;
    FilePath path = "before";
    UpdateReader::xParseURL(location, host, port, path);
    KQ_FUZZ_CHECK(port != 0);
    KQ_FUZZ_CHECK(host.find('/') == String::npos && host.find(':') == String::npos);
    KQ_FUZZ_CHECK(path.GetText().StartsWith("/") || path.GetText() == "before");
    KQ_FUZZ_CHECK(host.size() + path.GetText().size() <= location.size() + 12);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const OUTCOME whole = Read(data, size, size);
    KQ_FUZZ_CHECK(whole.location.size() <= MAX_LINE);
    KQ_FUZZ_CHECK(whole.amount <= 0xFFFFFFFFUL);
    CheckPlace(whole.location);
    // However the bytes are cut, they say the same.
    KQ_FUZZ_CHECK(Read(data, size, 1) == whole);
    KQ_FUZZ_CHECK(Read(data, size, 7) == whole);
    return 0;
}
