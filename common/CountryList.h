// CountryList: the country codes of ISO 3166-1.
#pragma once

#include "common/String.h"

namespace kqlib {

/// The codes of ISO 3166-1, a list compiled in.
class KQCOMMON_API CountryList
{
public:
    /// True when code is a two-letter country code (in any case); number is then the ISO numeric code. False: number
    /// unchanged. Any thread.
    static bool sLookupCode(const String& code, ULONG& number);
};

} // namespace kqlib
