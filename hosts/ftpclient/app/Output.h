// Output: what kqftp prints.
#pragma once

#include "hosts/ftpclient/FtpClientRequest.h"
#include "hosts/ftpclient/FtpMirrorReport.h"

#include <cstdint>

namespace kqlib {

/// Lines, and on a terminal a bar for the transfer that is running, which makes room for every line. Texts of the
/// server are printed without control characters.
///
/// Ownership: none. Threads: one at a time.
class Output
{
public:
    explicit Output(bool isQuiet);
    ~Output();
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    /// Nothing when quiet.
    void PrintLine(const String& text);
    void PrintFailure(const String& text);
    void PrintEntry(const FtpRemoteEntry& entry, bool isNameOnly);
    void PrintMirrored(FtpMirrorReport::WHAT what, const String& path, const String& reason);
    void PrintTotals(const FtpMirrorReport& report);
    /// Draws the bar anew.
    void ShowProgress(const FtpClientProgress& progress);

private:
    void xClearBar();

    const bool m_isQuiet;
    const bool m_isTerminal;
    std::size_t m_barLength = 0; // what stands on the last line of the terminal
};

} // namespace kqlib
