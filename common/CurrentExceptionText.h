// CurrentExceptionText: what an exception of any kind says, for a log line. Inside the libraries only.
#pragma once

#include "common/String.h"

#include <exception>

namespace kqlib {

/// Called where an exception is being handled: the text of that exception, or a fixed text for one that has none. May
/// throw std::bad_alloc itself.
inline String CurrentExceptionText()
{
    try {
        throw;
    } catch (const std::exception& exception) {
        if (const char* const text = exception.what(); text != nullptr && *text != '\0')
            return text;
        return "Exception without a text";
    } catch (...) {
        return "Exception of an unknown kind";
    }
}

} // namespace kqlib
