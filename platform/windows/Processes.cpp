#include "platform/windows/SystemHeaders.h"

#include "platform/Processes.h"

#include "platform/windows/WideText.h"

#include <shellapi.h>

namespace kqlib::platform {

bool OpenWithShell(HWND window, const char* path)
{
    constexpr INT_PTR lastFailure = 32; // results up to it are failures
    const std::wstring name = ToWide(path);
    if (name.empty())
        return false;
    HINSTANCE const result = ShellExecuteW(window, L"open", name.c_str(), L"", L"", SW_SHOW);
    return reinterpret_cast<INT_PTR>(result) > lastFailure;
}

} // namespace kqlib::platform
