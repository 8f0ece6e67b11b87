// NetAppUpdate: looks for a newer version of the application, downloads and starts it.
#pragma once

#include "common/FilePath.h"
#include "common/SingleThreadByPool.h"
#include "common/String.h"
#include "common/ThreadGateway.h"
#include "net/dns/NetDNSCache.h"
#include "net/sockets/NetTCP.h"
#include "platform/Window.h"

#include <cstdint>

namespace kqlib {

class FileAccess;

/// A small HTTP/1.1 client (RFC 9112) over plain TCP with one purpose: CheckForUpdate fetches a version file,
/// DownloadUpdate the installer that the version file names, RunUpdate starts it. The work is done on a pool thread;
/// the host polls GetStatus and the amounts.
///
/// One GET per request; 301, 302 and 307 are followed over at most ten requests, to "http://" places only (any other
/// place repeats the same request until the limit). A 200 response must carry a Content-Length, which the download is
/// checked against; kept on purpose. Nothing is authenticated: whoever can change the traffic can change the update.
///
/// Ownership: borrows the pool, which must outlive it; owns its resolver cache. Threads: the operations that start or
/// end work one thread at a time, the questions any thread. Errors: no codes; what fails ends in ST_FAILED or answers
/// false. A partial or oversized download never stays on disk.
class KQNET_API NetAppUpdate : public SingleThreadByPool
{
public:
    /// How far the work is. A state that ends it is set just before the thread ends: IsBusy may still be true then.
    enum STATE : std::uint32_t
    {
        ST_IDLE = 0,             ///< nothing was asked for, or it was cancelled
        ST_CHECKING = 1,         ///< CheckForUpdate works
        ST_NO_UPDATE = 2,        ///< the version file names no version above the current one
        ST_UPDATE_AVAILABLE = 3, ///< it does: DownloadUpdate may be called
        ST_DOWNLOADING = 4,      ///< DownloadUpdate works
        ST_DOWNLOADED = 5,       ///< the installer is there whole: RunUpdate may be called
        ST_FAILED = 6            ///< check or download failed, or was ended; CheckForUpdate starts anew
    };

    /// The version file: five lines in this order.
    struct VERSIONFILE
    {
        std::uint32_t version; ///< decimal; 0 is not valid
        String description;    ///< for people; not empty
        String host;           ///< of the installer, not empty
        USHORT port;           ///< of the installer's server, not 0
        FilePath path;         ///< of the installer on that server, not empty
    };

    /// currentVersion: a found version must be greater. referer: product text of every request. fileNamePrefix: start
    /// of the installer's file name.
    NetAppUpdate(ThreadPool& pool, const FilePath& downloadFolder, unsigned long currentVersion, const String& referer,
                 const String& fileNamePrefix);
    /// Ends what runs; a download under way is deleted.
    ~NetAppUpdate() override;

    /// Ends what runs, forgets what was found and starts looking for the version file. checkDetail: added to the
    /// referer of this request. False: no thread could be had, state ST_IDLE.
    bool CheckForUpdate(const String& checkDetail, const String& host, unsigned short port, const FilePath& path);
    /// Starts the download in state ST_UPDATE_AVAILABLE. False in any other, and when the thread still runs a second
    /// later or none could be had.
    bool DownloadUpdate();
    /// Starts the downloaded installer for the window (may be null). False unless a download is complete; true then,
    /// whatever becomes of the installer.
    bool RunUpdate(HWND window);
    /// Ends what runs and forgets what was found; a download under way is deleted.
    void CancelAndReset();

    /// ST_IDLE at first.
    STATE GetStatus() const;
    /// Bytes of the installer received, and expected by the last Content-Length; both below 2^32.
    ///@{
    ULONG GetReceivedAmount() const;
    ULONG GetMaxReceivingAmount() const;
    ///@}
    /// The description of the version found, empty when none was.
    String GetUpdateDescription() const;
    /// The version found, 0 when none was.
    ULONG GetUpdateVersion() const;
    /// Full path of the installer, empty unless a download is under way or complete.
    FilePath GetDownloadedUpdatePath() const;
    /// The thread runs.
    bool IsBusy() const;

    /// out: folder, prefix, version in decimal, ".exe".
    static void sGenUpdateFilePath(const FilePath& folder, const String& prefix, unsigned long version, FilePath& out);

protected:
    /// The receive buffer of one thread run.
    struct RECVBUF
    {
        static constexpr ULONG SIZE = 4096; ///< of bytes
        NetTCP::RECVBUF received;           ///< the command reception's, over bytes
        unsigned char bytes[SIZE];          ///< what came and is not consumed
        String line;                        ///< the line under way
        bool done;                          ///< it is complete
    };

    /// Splits "http://host[:port][/path]". Anything else changes nothing.
    static void xParseURL(const String& url, String& host, USHORT& port, FilePath& path);
    /// The text of a request with its empty line.
    String xBuildRequest(bool isVersionRequest, const String& host, USHORT port, const FilePath& path) const;

    // What reads the bytes of a server, through the virtual reception of the socket.
    /// Empties the buffer for a connection.
    static void xPrepareBuffer(NetTCP& socket, RECVBUF& buffer);
    /// One header up to its empty line. redirect: by status 301, 302 or 307, location is where to. False: any other
    /// status, an end before the empty line, or what the status needs (a length, a location) is missing.
    bool xReceiveHeader(NetTCP& socket, RECVBUF& buffer, bool& redirect, String& location);
    /// One line of at most 2048 characters; the last one may be cut off by the end of the connection. False: too long,
    /// nothing more came, or the thread is to end.
    bool xReceiveLine(NetTCP& socket, RECVBUF& buffer, String& line) const;
    /// The five lines, then closes. What is missing stays empty. False: file is not valid.
    bool xReceiveVersionFile(NetTCP& socket, RECVBUF& buffer, VERSIONFILE& file) const;

private:
    void xThread() override;
    void xReset();
    bool xWaitUntilNotBusy() const;

    void xCheck(NetTCP& socket, RECVBUF& buffer);
    void xDownload(NetTCP& socket, RECVBUF& buffer);
    bool xConnectAndRequestFile(NetTCP& socket, RECVBUF& buffer, bool isVersionRequest, String host, USHORT port,
                                FilePath path);
    bool xSendData(NetTCP& socket, const String& text) const;
    bool xReceiveFile(NetTCP& socket, RECVBUF& buffer);
    bool xReceiveInto(const FilePath& path, NetTCP& socket, RECVBUF& buffer);
    bool xReceiveBody(NetTCP& socket, RECVBUF& buffer, FileAccess& file);
    bool xReceivePiece(NetTCP& socket, RECVBUF& buffer, unsigned char* piece, ULONG& size) const;
    bool xProcessReceivedFile(ULONG8 size) const;
    void xSetState(STATE state);

    const std::uint32_t m_currentVersion; // these four: set once at construction
    const FilePath m_downloadFolder;
    const String m_referer;
    const String m_fileNamePrefix;

    ThreadGateway m_lock; // guards everything down to the download path
    STATE m_state = ST_IDLE;
    std::uint32_t m_receivedAmount = 0;
    std::uint32_t m_maxReceivingAmount = 0;
    String m_description;
    std::uint32_t m_updateVersion = 0;
    FilePath m_downloadedPath;
    NetDNSCache m_cache; // locks itself
    String m_downloadHost;
    USHORT m_downloadPort = 80;
    FilePath m_downloadPath;

    String m_checkDetail; // these four: written only while no thread runs
    String m_checkHost;
    USHORT m_checkPort = 80;
    FilePath m_checkPath;
};

} // namespace kqlib
