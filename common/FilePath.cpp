#include "common/FilePath.h"

#include "platform/Files.h"

namespace kqlib {

void FilePath::MakeSafeForFileAppend(bool folder)
{
    if (!folder || m_text.empty())
        return;
    const char last = m_text[m_text.size() - 1];
    if (last != '/' && last != platform::PathSeparator())
        m_text += platform::PathSeparator();
}

} // namespace kqlib
