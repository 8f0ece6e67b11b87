#include "platform/windows/WideText.h"

#include "platform/windows/SystemHeaders.h"

namespace kqlib::platform {

std::wstring ToWide(const char* text)
{
    // Both counts include the terminator.
    const int count = MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text, -1, nullptr, 0);
    if (count <= 1)
        return {};
    std::wstring wide(static_cast<std::size_t>(count), L'\0');
    MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text, -1, wide.data(), count);
    wide.pop_back();
    return wide;
}

std::string FromWide(const wchar_t* text)
{
    const int count = WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);
    if (count <= 1)
        return {};
    std::string bytes(static_cast<std::size_t>(count), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text, -1, bytes.data(), count, nullptr, nullptr);
    bytes.pop_back();
    return bytes;
}

} // namespace kqlib::platform
