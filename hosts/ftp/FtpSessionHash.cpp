// FtpSession: hashes of files.
#include "hosts/ftp/FtpHash.h"
#include "hosts/ftp/FtpSession.h"
#include "hosts/ftpcommon/FtpText.h"

#include <algorithm>
#include <vector>

namespace kqlib {

namespace {

/// What is read and hashed at a time.
constexpr std::size_t CHUNK_BYTES = 256 * 1024;

/// The name in an argument; some clients put it in quotes.
String Unquote(const String& argument)
{
    const bool isQuoted = argument.size() > 2 && argument.StartsWith("\"") && argument.EndsWith("\"");
    return isQuoted ? argument.substr(1, argument.size() - 2) : argument;
}

/// Hexadecimal digits as the older commands give them.
String MakeCapitals(String digits)
{
    for (String::size_type i = 0; i < digits.size(); ++i)
        if (digits[i] >= 'a')
            digits[i] = static_cast<char>(digits[i] - 'a' + 'A');
    return digits;
}

} // namespace

/// The reply names the hash, the bytes that it is of (from the first to behind the last), and the file.
void FtpSession::xCmdHash(const String& argument)
{
    String hash;
    ULONG8 size = 0;
    if (xMakeHash("HASH", argument, m_hash, hash, size))
        xReply(213, m_hash + " 0-" + String::sToString(size) + " " + hash + " " + MakeVisible(argument));
}

void FtpSession::xCmdXmd5(const String& argument)
{
    xReplyHash("XMD5", argument, "MD5");
}

void FtpSession::xCmdXsha1(const String& argument)
{
    xReplyHash("XSHA1", argument, "SHA-1");
}

void FtpSession::xCmdXsha256(const String& argument)
{
    xReplyHash("XSHA256", argument, "SHA-256");
}

void FtpSession::xCmdXsha512(const String& argument)
{
    xReplyHash("XSHA512", argument, "SHA-512");
}

void FtpSession::xReplyHash(const char* verb, const String& argument, const String& kind)
{
    String hash;
    ULONG8 size = 0;
    if (xMakeHash(verb, Unquote(argument), kind, hash, size))
        xReply(250, MakeCapitals(hash));
}

/// Replies and answers false when there is none. A large file takes its time: meanwhile ABOR, STAT, an administrator
/// and the end of the service are heard as during a transfer.
bool FtpSession::xMakeHash(const char* verb, const String& name, const String& kind, String& hash, ULONG8& size)
{
    String path;
    FtpFile file;
    if (!xResolve(name, path))
        return false;
    const RESULT result = xHasRight(FtpUserSettings::READ)
                              ? file.Open(m_files.GetRoot(), path.str(), platform::FileMode::READ, false)
                              : RESULT::DENIED;
    if (result != RESULT::DONE) {
        xReplyFailure(result);
        return false;
    }
    xNoteTransfer(verb, path, ACT_HASH);
    xWatch(); // what came along with the command itself
    const END end = xHashFile(file, kind, hash);
    size = m_transfer.moved;
    m_transfer = TRANSFER();
    xSetCurrentActionDetail(ACT_IDLE, String());
    xResetTimeOut();
    if (end == END::COMPLETE)
        return true;
    const ENDING& ending = xsDescribeEnd(end);
    xReply(ending.code, ending.text);
    return false;
}

/// What is added to the file meanwhile does not count: somebody may add without end.
FtpSession::END FtpSession::xHashFile(const FtpFile& file, const String& kind, String& hash)
{
    FtpHash sum(kind);
    std::vector<unsigned char> buffer(CHUNK_BYTES);
    std::uint64_t rest = file.GetSize();
    while (rest != 0) {
        std::size_t got = 0;
        if (!xShouldGoOn())
            return xWhyStopped();
        const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(rest, CHUNK_BYTES));
        if (!platform::ReadFile(file.Get(), buffer.data(), wanted, got) || !sum.Add(buffer.data(), got))
            return END::READ_FAILED;
        if (got == 0) // it became shorter
            break;
        rest -= got;
        m_transfer.moved += got;
        xResetTimeOut();
    }
    hash = sum.Finish();
    return hash.empty() ? END::READ_FAILED : END::COMPLETE;
}

} // namespace kqlib
