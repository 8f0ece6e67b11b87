// EventLog: the log for people, one line per event.
#pragma once

#include "common/EventLogSessionID.h"
#include "common/EventLogSettings.h"
#include "common/NetIP.h"

#include <memory>

namespace kqlib {

/// Appends one line per event to a file. Nothing is printed until SetSettings enables it.
///
/// A line has eight fields with a TAB between: local time "YYYY-MM-DD hh:mm:ss.mmm"; kind ("Service", "Normal" or
/// "Debug"); session number and thread id in hexadecimal, "-" between; remote address:port; local address:port; event;
/// detail; comment. Absent fields are empty. A control character in any field becomes "%" and two hexadecimal digits,
/// so that no peer can forge a line.
/// A file that is made can be read by its owner and group only. A line that finds the volume full may lose its end; the
/// next one begins on a line of its own all the same.
/// A host or a test that derives from it may take the events elsewhere.
///
/// Ownership: owns the file. Threads: any thread. Errors: a line that cannot be written is dropped; printing throws
/// nothing. The order of the virtual functions is part of the binary interface; new ones go last.
class KQCOMMON_API EventLog
{
public:
    /// Disabled.
    EventLog();
    /// Closes the file.
    virtual ~EventLog();
    EventLog(const EventLog&) = delete;
    EventLog& operator=(const EventLog&) = delete;

    /// An event of a service as a whole, without session and addresses.
    virtual void PrintServiceNormal(const String& event, const String& detail, const String& comment);
    /// An event of a session. The address that is unset, with port 0, leaves its field empty; ports in host order.
    virtual void PrintIPNormal(const EventLogSessionID& id, NetIP remote, USHORT remotePort, NetIP local,
                               USHORT localPort, const String& event, const String& detail, const String& comment);
    /// Dropped unless the settings ask for debug lines.
    virtual void PrintIPDebug(const EventLogSessionID& id, NetIP remote, USHORT remotePort, NetIP local,
                              USHORT localPort, const String& event, const String& detail, const String& comment);
    /// Returns after everything printed before it is in the file.
    virtual void PrintPurge();

    /// Closes the file in use and goes on as told, in the file `<folder>/<file name>`, the folder made when missing. A
    /// file that cannot be had drops the lines and is tried again every five seconds while lines come.
    void SetSettings(const EventLogSettings& settings);
    /// The settings last given.
    void GetSettings(EventLogSettings& out) const;
    /// Goes on in the file that the path names now, made when missing: call it after the file was moved. True when it
    /// could be had. False: lines go on to the file in use before, if there was one, or the log is disabled. No line
    /// that other threads print meanwhile is lost.
    bool Reopen();
    /// Whether there is a file that lines go to. False also for a disabled log.
    bool IsOpen() const;

private:
    struct STATE;
    std::unique_ptr<STATE> m_state;
};

} // namespace kqlib
