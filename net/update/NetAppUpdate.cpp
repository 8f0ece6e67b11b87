#include "net/update/NetAppUpdate.h"

#include "common/FileAccess.h"
#include "common/RunAllSteps.h"
#include "common/STRINGS.h"
#include "platform/Clock.h"
#include "platform/Processes.h"

#include <algorithm>
#include <memory>
#include <tuple>
#include <vector>

namespace kqlib {

// What users of the DLL link to when they need its address.
constexpr ULONG NetAppUpdate::RECVBUF::SIZE;

namespace {

constexpr ULONG SOCKET_BLOCK_TIME_MS = 500;
constexpr std::uint32_t BUSY_WAIT_MS = 1000;
constexpr int MAX_REQUESTS = 10;
constexpr USHORT DEFAULT_PORT = 80;
constexpr String::size_type MAX_LINE_SIZE = 2048;
/// Command reception counts the CR, and stops one character before its limit.
constexpr ULONG LINE_RECEPTION_LIMIT = MAX_LINE_SIZE + 2;
/// Received and written at once; a wait belongs to each reception, so that small pieces cost speed.
constexpr ULONG PIECE_SIZE = 262144;
/// A file may outgrow the expected size by this much before the download fails.
constexpr ULONG8 MAX_EXCESS = 1024;

constexpr const char* CONTENT_LENGTH = "Content-Length: ";
constexpr const char* LOCATION = "Location: ";
constexpr const char* SCHEME = "http://";
constexpr String::size_type SHORTEST_URL = 8;
constexpr const char* FILE_EXTENSION = ".exe";

bool IsRedirect(const String& statusLine)
{
    return statusLine.FindI(" 301 ") != String::npos || statusLine.FindI(" 302 ") != String::npos ||
           statusLine.FindI(" 307 ") != String::npos;
}

/// The text behind a header name; false when the line does not begin with it.
bool TakeValue(const String& line, const String& name, String& value)
{
    if (!line.StartsWithI(name))
        return false;
    value = line.substr(name.size());
    return true;
}

} // namespace

NetAppUpdate::NetAppUpdate(ThreadPool& pool, const FilePath& downloadFolder, unsigned long currentVersion,
                           const String& referer, const String& fileNamePrefix)
    : SingleThreadByPool(pool)
    , m_currentVersion(static_cast<std::uint32_t>(currentVersion))
    , m_downloadFolder(downloadFolder)
    , m_referer(referer)
    , m_fileNamePrefix(fileNamePrefix)
{
    xReset();
}

NetAppUpdate::~NetAppUpdate()
{
    xEndThread();
}

void NetAppUpdate::xReset()
{
    const ThreadGatewayGuard guard(m_lock);
    m_state = ST_IDLE;
    m_receivedAmount = 0;
    m_maxReceivingAmount = 0;
    m_updateVersion = 0;
    m_description.clear();
    m_downloadedPath = FilePath();
    m_downloadHost.clear();
    m_downloadPort = DEFAULT_PORT;
    m_downloadPath = FilePath();
    m_checkDetail.clear();
    m_checkHost.clear();
    m_checkPort = DEFAULT_PORT;
    m_checkPath = FilePath();
}

bool NetAppUpdate::CheckForUpdate(const String& checkDetail, const String& host, unsigned short port,
                                  const FilePath& path)
{
    xEndThread();
    xReset();
    m_checkDetail = checkDetail;
    m_checkHost = host;
    m_checkPort = port;
    m_checkPath = path;
    xSetState(ST_CHECKING);
    if (xRunThread())
        return true;
    xSetState(ST_IDLE);
    return false;
}

/// The thread sets its state just before it ends, so a host that acts on the state at once may find it running still.
bool NetAppUpdate::xWaitUntilNotBusy() const
{
    if (xIsThreadRunning())
        platform::SleepMs(BUSY_WAIT_MS);
    return !xIsThreadRunning();
}

bool NetAppUpdate::DownloadUpdate()
{
    if (!xWaitUntilNotBusy() || GetStatus() != ST_UPDATE_AVAILABLE)
        return false;
    xSetState(ST_DOWNLOADING);
    if (xRunThread())
        return true;
    xSetState(ST_UPDATE_AVAILABLE);
    return false;
}

bool NetAppUpdate::RunUpdate(HWND window)
{
    if (!xWaitUntilNotBusy() || GetStatus() != ST_DOWNLOADED)
        return false;
    const FilePath path = GetDownloadedUpdatePath();
    if (path.empty())
        return false;
    // What the system makes of it is not this object's to judge.
    platform::OpenWithShell(window, path.c_str());
    return true;
}

void NetAppUpdate::CancelAndReset()
{
    xEndThread();
    xReset();
}

NetAppUpdate::STATE NetAppUpdate::GetStatus() const
{
    const ThreadGatewayGuard guard(m_lock);
    return m_state;
}

ULONG NetAppUpdate::GetReceivedAmount() const
{
    const ThreadGatewayGuard guard(m_lock);
    return m_receivedAmount;
}

ULONG NetAppUpdate::GetMaxReceivingAmount() const
{
    const ThreadGatewayGuard guard(m_lock);
    return m_maxReceivingAmount;
}

String NetAppUpdate::GetUpdateDescription() const
{
    const ThreadGatewayGuard guard(m_lock);
    return m_description;
}

ULONG NetAppUpdate::GetUpdateVersion() const
{
    const ThreadGatewayGuard guard(m_lock);
    return m_updateVersion;
}

FilePath NetAppUpdate::GetDownloadedUpdatePath() const
{
    const ThreadGatewayGuard guard(m_lock);
    return m_downloadedPath;
}

bool NetAppUpdate::IsBusy() const
{
    return xIsThreadRunning();
}

void NetAppUpdate::sGenUpdateFilePath(const FilePath& folder, const String& prefix, unsigned long version,
                                      FilePath& out)
{
    out = folder;
    out.MakeSafeForFileAppend(true);
    out += prefix;
    out += String::sToString(version);
    out += FILE_EXTENSION;
}

void NetAppUpdate::xSetState(STATE state)
{
    const ThreadGatewayGuard guard(m_lock);
    m_state = state;
}

void NetAppUpdate::xThread()
{
    try {
        NetTCP socket(NetIP::LOOKUP_ANY, m_cache);
        socket.SetBlockTime(SOCKET_BLOCK_TIME_MS);
        const auto buffer = std::make_unique<RECVBUF>();
        if (GetStatus() == ST_CHECKING)
            xCheck(socket, *buffer);
        else
            xDownload(socket, *buffer);
    } catch (...) {
        xSetState(ST_FAILED); // for want of memory, mostly
    }
}

void NetAppUpdate::xCheck(NetTCP& socket, RECVBUF& buffer)
{
    VERSIONFILE file{};
    if (!xConnectAndRequestFile(socket, buffer, true, m_checkHost, m_checkPort, m_checkPath) ||
        !xReceiveVersionFile(socket, buffer, file))
    {
        xSetState(ST_FAILED);
        return;
    }
    const ThreadGatewayGuard guard(m_lock);
    if (file.version <= m_currentVersion) {
        m_state = ST_NO_UPDATE;
        return;
    }
    m_downloadHost = file.host;
    m_downloadPort = file.port;
    m_downloadPath = file.path;
    m_description = file.description;
    m_updateVersion = file.version;
    m_state = ST_UPDATE_AVAILABLE;
}

void NetAppUpdate::xDownload(NetTCP& socket, RECVBUF& buffer)
{
    const auto [host, port, path] = [this] {
        const ThreadGatewayGuard guard(m_lock);
        return std::tuple(m_downloadHost, m_downloadPort, m_downloadPath);
    }();
    const bool received =
        xConnectAndRequestFile(socket, buffer, false, host, port, path) && xReceiveFile(socket, buffer);
    xSetState(received ? ST_DOWNLOADED : ST_FAILED);
}

bool NetAppUpdate::xConnectAndRequestFile(NetTCP& socket, RECVBUF& buffer, bool isVersionRequest, String host,
                                          USHORT port, FilePath path)
{
    for (int request = 1; request <= MAX_REQUESTS; ++request) {
        if (xShouldThreadEnd())
            return false;
        socket.Close();
        xPrepareBuffer(socket, buffer);
        bool redirect = false;
        String location;
        if (!socket.Connect(host, port) || !xSendData(socket, xBuildRequest(isVersionRequest, host, port, path)) ||
            !xReceiveHeader(socket, buffer, redirect, location))
            return false;
        if (!redirect)
            return true;
        // A place that cannot be used leaves the three as they are: the same request again, until the limit.
        xParseURL(location, host, port, path);
    }
    return false;
}

String NetAppUpdate::xBuildRequest(bool isVersionRequest, const String& host, USHORT port, const FilePath& path) const
{
    String text = "GET " + path.GetText() + " HTTP/1.1\r\n";
    text += "Accept: */*\r\n";
    text += "Pragma: no-cache\r\n";
    text += "User-Agent: Mozilla/4.0 (compatible; MSIE 5.5; Windows 98)\r\n";
    text += "Host: " + host;
    if (port != DEFAULT_PORT)
        text += ":" + String::sToString(port);
    text += "\r\nReferer: " + m_referer;
    if (isVersionRequest)
        text += " (" + m_checkDetail + ")";
    text += "\r\nConnection: Close\r\n\r\n";
    return text;
}

bool NetAppUpdate::xSendData(NetTCP& socket, const String& text) const
{
    String::size_type sent = 0;
    while (sent < text.size()) {
        if (xShouldThreadEnd())
            return false;
        ULONG size = static_cast<ULONG>(text.size() - sent);
        if (!socket.Send(text.data() + sent, size))
            return false;
        sent += size;
    }
    return !text.empty();
}

void NetAppUpdate::xPrepareBuffer(NetTCP& socket, RECVBUF& buffer)
{
    buffer.received.capacity = RECVBUF::SIZE;
    buffer.received.buffer = buffer.bytes;
    socket.RecvPrepForFirstCmd(buffer.received, buffer.line, buffer.done);
}

bool NetAppUpdate::xReceiveHeader(NetTCP& socket, RECVBUF& buffer, bool& redirect, String& location)
{
    bool lengthFound = false;
    bool locationFound = false;
    String line;
    for (bool first = true; xReceiveLine(socket, buffer, line); first = false) {
        if (first) {
            const bool success = line.FindI(" 200 ") != String::npos;
            redirect = !success && IsRedirect(line);
            if (!success && !redirect)
                return false;
        }
        if (line.empty())
            return redirect ? locationFound : lengthFound;
        String value;
        if (!lengthFound && TakeValue(line, CONTENT_LENGTH, value)) {
            lengthFound = true;
            const ThreadGatewayGuard guard(m_lock);
            m_maxReceivingAmount = static_cast<std::uint32_t>(value.ToULONG());
        } else if (!locationFound && TakeValue(line, LOCATION, location)) {
            locationFound = true;
        }
    }
    return false;
}

bool NetAppUpdate::xReceiveLine(NetTCP& socket, RECVBUF& buffer, String& line) const
{
    bool open = true;
    while (open && !buffer.done) {
        if (xShouldThreadEnd())
            return false;
        bool tooLong = false;
        open = socket.RecvTryGetCmd(true, LINE_RECEPTION_LIMIT, buffer.received, buffer.line, tooLong, buffer.done);
        if (tooLong)
            return false;
    }
    if (!open && buffer.received.lastWasCR)
        buffer.line.pop_back();
    line = buffer.line;
    socket.RecvPrepForNextCmd(buffer.received, buffer.line, buffer.done);
    return line.size() <= MAX_LINE_SIZE && (open || !line.empty());
}

void NetAppUpdate::xParseURL(const String& url, String& host, USHORT& port, FilePath& path)
{
    if (url.size() < SHORTEST_URL || !url.StartsWithI(SCHEME))
        return;
    String place = url.substr(String(SCHEME).size());
    if (place.find('/') == String::npos)
        place += '/';
    const String::size_type slash = place.find('/');
    path = place.substr(slash);
    place.erase(slash);
    if (place.find(':') == String::npos)
        place += ":80";
    const String::size_type colon = place.find(':');
    port = place.substr(colon + 1).ToUSHORT();
    if (port == 0)
        port = DEFAULT_PORT;
    host = place.substr(0, colon);
}

bool NetAppUpdate::xReceiveVersionFile(NetTCP& socket, RECVBUF& buffer, VERSIONFILE& file) const
{
    constexpr STRINGS::size_type LINES = 5;
    STRINGS lines;
    for (String line; lines.size() < LINES && xReceiveLine(socket, buffer, line);)
        lines.push_back(line);
    // When the connection ended before, what was read is judged all the same.
    lines.resize(LINES);
    file.version = static_cast<std::uint32_t>(lines[0].ToULONG());
    file.description = lines[1];
    file.host = lines[2];
    file.port = lines[3].ToUSHORT();
    file.path = lines[4];
    socket.Close();
    return file.version > 0 && !file.description.empty() && !file.host.empty() && file.port > 0 && !file.path.empty();
}

bool NetAppUpdate::xReceiveFile(NetTCP& socket, RECVBUF& buffer)
{
    FilePath path;
    {
        const ThreadGatewayGuard guard(m_lock);
        sGenUpdateFilePath(m_downloadFolder, m_fileNamePrefix, m_updateVersion, path);
        m_downloadedPath = path;
    }
    bool complete = false;
    RunAllSteps([&] { complete = xReceiveInto(path, socket, buffer); },
                [&] {
                    if (complete)
                        return;
                    const ThreadGatewayGuard guard(m_lock);
                    m_downloadedPath = FilePath();
                });
    return complete;
}

/// Makes the file. It stays only when it is complete.
bool NetAppUpdate::xReceiveInto(const FilePath& path, NetTCP& socket, RECVBUF& buffer)
{
    FileAccess file;
    if (!file.Open(path, FileAccess::AM_WRITE, true, true))
        return false;
    bool complete = false;
    RunAllSteps([&] { complete = xReceiveBody(socket, buffer, file) && xProcessReceivedFile(file.GetSize()); },
                [&] {
                    file.Close();
                    if (!complete)
                        FileAccess::sDelete(path);
                });
    return complete;
}

/// True when the connection has ended and everything that came is in the file.
bool NetAppUpdate::xReceiveBody(NetTCP& socket, RECVBUF& buffer, FileAccess& file)
{
    std::vector<unsigned char> piece(PIECE_SIZE);
    ULONG8 received = 0;
    const ULONG8 expected = GetMaxReceivingAmount();
    while (received <= expected) {
        if (xShouldThreadEnd())
            return false;
        ULONG size = static_cast<ULONG>(std::min<ULONG8>(PIECE_SIZE, expected - received + MAX_EXCESS));
        if (!xReceivePiece(socket, buffer, piece.data(), size))
            return true;
        if (size > 0 && !file.WriteAll(piece.data(), size))
            return false;
        received += size;
        const ThreadGatewayGuard guard(m_lock);
        m_receivedAmount = static_cast<std::uint32_t>(received);
    }
    return false;
}

/// What the header reception left in the buffer first, then from the socket. False: the connection has ended.
bool NetAppUpdate::xReceivePiece(NetTCP& socket, RECVBUF& buffer, unsigned char* piece, ULONG& size) const
{
    const ULONG room = size;
    bool more = false;
    socket.RecvPurgeRemaining(buffer.received, piece, size, more);
    if (size > 0)
        return true;
    size = room;
    return socket.Recv(piece, size);
}

bool NetAppUpdate::xProcessReceivedFile(ULONG8 size) const
{
    return size == GetMaxReceivingAmount();
}

} // namespace kqlib
