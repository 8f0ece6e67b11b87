// The lines of the event log, whose fields are texts of peers. Input: what is printed, the sizes of event and detail,
// then their bytes and those of the comment.
#include "common/EventLog.h"
#include "fuzz/Check.h"
#include "fuzz/Input.h"
#include "tests/peers/TempFolder.h"

#include <cstdio>
#include <fstream>
#include <string>

using namespace kqlib;
using namespace kqlib::fuzz;

namespace {

/// A log and a reader of what it has written.
class Log
{
public:
    Log() { xUseFile(); }

    EventLog& Get() { return m_log; }

    /// Everything that was written since the last call.
    std::string TakeWritten()
    {
        m_log.PrintPurge();
        std::string text;
        m_file.clear();
        m_file.seekg(static_cast<std::streamoff>(m_size)); // some systems' streams stay at the end that they met
        char buffer[4096];
        do {
            m_file.read(buffer, sizeof buffer);
            text.append(buffer, static_cast<std::size_t>(m_file.gcount()));
        } while (m_file.gcount() > 0);
        m_size += text.size();
        if (m_size > MAX_FILE)
            xUseFile();
        return text;
    }

private:
    static constexpr std::size_t MAX_FILE = 1 << 24;

    /// The first or the next file; the one before goes.
    void xUseFile()
    {
        const std::string last = "log" + std::to_string(m_number);
        const std::string name = "log" + std::to_string(++m_number);
        EventLogSettings settings;
        settings.SetEnabled(true);
        settings.SetUsePrintDebug(true);
        settings.SetFolder(m_folder.GetFilePath());
        settings.SetFileName(name.c_str());
        m_log.SetSettings(settings);
        m_file.close();
        m_file.open(m_folder / name, std::ios::binary);
        KQ_FUZZ_CHECK(m_file.is_open());
        m_size = 0;
        std::filesystem::remove(m_folder / last);
    }

    test::TempFolder m_folder;
    EventLog m_log;
    std::ifstream m_file;
    unsigned m_number = 0;
    std::size_t m_size = 0;
};

std::string Escape(std::string_view text)
{
    std::string escaped;
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        char hex[4];
        std::snprintf(hex, sizeof hex, "%%%02X", byte);
        escaped += byte < 32 || byte == 127 ? std::string(hex) : std::string(1, character);
    }
    return escaped;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static Log log;
    Input input(data, size);
    const std::uint8_t kind = input.Byte() % 3;
    const std::size_t eventSize = input.Byte();
    const std::size_t detailSize = input.Byte();
    std::string_view rest = input.Rest();
    const String event(rest.substr(0, eventSize));
    rest.remove_prefix(event.size());
    const String detail(rest.substr(0, detailSize));
    rest.remove_prefix(detail.size());
    const String comment(rest);

    const EventLogSessionID id(0x12, 0xABCDEF01);
    const NetIP remote(String("10.0.0.1"));
    const NetIP local(String("::1"));
    std::string head;
    if (kind == 0) {
        log.Get().PrintServiceNormal(event, detail, comment);
        head = "\tService\t\t\t";
    } else if (kind == 1) {
        log.Get().PrintIPNormal(id, remote, 1024, local, 21, event, detail, comment);
        head = "\tNormal\t00000012-ABCDEF01\t10.0.0.1:1024\t[::1]:21";
    } else {
        log.Get().PrintIPDebug(id, remote, 1024, local, 21, event, detail, comment);
        head = "\tDebug\t00000012-ABCDEF01\t10.0.0.1:1024\t[::1]:21";
    }
    constexpr std::size_t TIME_SIZE = 23; // YYYY-MM-DD hh:mm:ss.mmm
    const std::string line = log.TakeWritten();
    KQ_FUZZ_CHECK(line.find('\t') == TIME_SIZE);
    KQ_FUZZ_CHECK(line.substr(TIME_SIZE) == head + "\t" + Escape(event.view()) + "\t" + Escape(detail.view()) + "\t" +
                                                Escape(comment.view()) + "\n");
    return 0;
}
