// FtpFileSystem: the files of one user, under virtual paths.
#include "hosts/ftp/FtpFileSystem.h"

#include "common/STRINGS.h"
#include "hosts/ftpcommon/FtpText.h"

namespace kqlib {

FtpFileSystem::RESULT FtpFileSystem::Open(const FilePath& home)
{
    m_home = home;
    m_folder = "/";
    return m_root.Open(home.c_str());
}

void FtpFileSystem::Close()
{
    m_root.Close();
}

FtpFileSystem::RESULT FtpFileSystem::Resolve(const String& text, String& path) const
{
    if (HasControlCharacter(text))
        return RESULT::BAD_NAME;
    STRINGS names;
    if (!text.StartsWith("/"))
        names.AddByLine(m_folder, static_cast<unsigned char>('/'), true, false);
    STRINGS written;
    written.AddByLine(text, static_cast<unsigned char>('/'), true, false);
    for (const String& name : written) {
        if (name == ".")
            continue;
        if (!(name == ".."))
            names.push_back(name);
        else if (!names.empty())
            names.pop_back();
    }
    path = "/" + names.GetLine(static_cast<unsigned char>('/'));
    return path.size() > MAX_PATH ? RESULT::BAD_NAME : RESULT::DONE;
}

FtpFileSystem::RESULT FtpFileSystem::SetFolder(const String& path)
{
    FACTS facts;
    if (const RESULT result = m_root.GetFacts(path.str(), facts); result != RESULT::DONE)
        return result;
    if (facts.kind != platform::FileKind::FOLDER)
        return RESULT::NOT_FOLDER;
    m_folder = path;
    return RESULT::DONE;
}

FilePath FtpFileSystem::GetRealPath(const String& path) const
{
    return FilePath(m_home.GetText() + path);
}

bool FtpFileSystem::IsFolder(const String& path) const
{
    FACTS facts;
    return m_root.GetFacts(path.str(), facts) == RESULT::DONE && facts.kind == platform::FileKind::FOLDER;
}

FtpFileSystem::RESULT FtpFileSystem::GetShownFacts(const String& path, FACTS& facts) const
{
    const RESULT own = m_root.GetOwnFacts(path.str(), facts);
    if (own != RESULT::DONE || facts.kind != platform::FileKind::LINK)
        return own;
    return m_root.GetFacts(path.str(), facts);
}

FtpFileSystem::RESULT FtpFileSystem::Rename(const String& from, const String& to, bool replace) const
{
    FACTS facts;
    if (m_root.GetOwnFacts(to.str(), facts) == RESULT::DONE && facts.kind == platform::FileKind::FOLDER)
        return RESULT::EXISTS;
    return m_root.Rename(from.str(), to.str(), replace);
}

String FtpFileSystem::sJoin(const String& folder, const String& name)
{
    return folder.EndsWith("/") ? folder + name : folder + "/" + name;
}

const char* FtpFileSystem::sDescribe(RESULT result)
{
    switch (result) {
    case RESULT::DONE:
        return "Done";
    case RESULT::NOT_FOUND:
        return "No such file or folder";
    case RESULT::EXISTS:
        return "There is one of that name already";
    case RESULT::NOT_FOLDER:
        return "Not a folder";
    case RESULT::IS_FOLDER:
        return "Is a folder";
    case RESULT::NOT_FILE:
        return "Not a plain file";
    case RESULT::NOT_EMPTY:
        return "Folder is not empty";
    case RESULT::DENIED:
        return "Permission denied";
    case RESULT::ESCAPES: // as if it were not there: nothing about the outside is told
        return "No such file or folder";
    case RESULT::TOO_MANY_LINKS:
        return "Too many links";
    case RESULT::BAD_NAME:
        return "Name not allowed";
    case RESULT::DISK_FULL:
        return "No space left";
    case RESULT::OTHER_DISK:
        return "Cannot be moved to another disk";
    case RESULT::FAILED:
        break;
    }
    return "Failed";
}

} // namespace kqlib
