// The version file. Input: its bytes.
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
    NetAppUpdate::VERSIONFILE file{};
};

OUTCOME Read(const std::uint8_t* data, std::size_t size, std::size_t pieceSize)
{
    ThreadPool pool;
    UpdateReader reader(pool);
    MemorySocket<NetTCP> socket(std::string_view(reinterpret_cast<const char*>(data), size), {pieceSize});
    const auto buffer = std::make_unique<UpdateReader::RECVBUF>();
    UpdateReader::xPrepareBuffer(socket, *buffer);
    OUTCOME outcome;
    outcome.success = reader.xReceiveVersionFile(socket, *buffer, outcome.file);
    return outcome;
}

bool IsSame(const OUTCOME& left, const OUTCOME& right)
{
    const auto& a = left.file;
    const auto& b = right.file;
    return left.success == right.success && a.version == b.version && a.description == b.description &&
           a.host == b.host && a.port == b.port && a.path == b.path;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const OUTCOME whole = Read(data, size, size);
    const NetAppUpdate::VERSIONFILE& file = whole.file;
    const bool complete =
        file.version > 0 && !file.description.empty() && !file.host.empty() && file.port > 0 && !file.path.empty();
    KQ_FUZZ_CHECK(whole.success == complete);
    for (const String& line : {file.description, file.host, file.path.GetText()}) {
        KQ_FUZZ_CHECK(line.size() <= MAX_LINE);
        KQ_FUZZ_CHECK(line.find('\n') == String::npos);
    }
    // However the bytes are cut, they say the same.
    KQ_FUZZ_CHECK(IsSame(Read(data, size, 1), whole));
    KQ_FUZZ_CHECK(IsSame(Read(data, size, 7), whole));
    return 0;
}
