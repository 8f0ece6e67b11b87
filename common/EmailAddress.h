// EmailAddress and ADDRESSES: mail addresses as the address rules see them.
#pragma once

#include "common/String.h"

#include <vector>

namespace kqlib {

/// The text of a mail address, valid or not. Ownership: a plain value. Threads: one at a time. Errors: none.
class KQCOMMON_API EmailAddress
{
public:
    /// An empty text, which is no valid address.
    EmailAddress() = default;
    /// Any text; nothing is refused.
    explicit EmailAddress(const String& address)
        : m_address(address)
    {
    }

    /// The text as it was given.
    const String& GetAddress() const { return m_address; }
    /// One "@"; a local part that is not empty and holds no blank, control byte or any of * ? < > , ; and a domain of
    /// labels of letters, digits and hyphens (none at a label's ends; one label is enough), or an address in brackets.
    bool IsAddressValid() const;

private:
    String m_address;
};

/// A list of mail addresses: a standard vector. A plain value.
class KQCOMMON_API ADDRESSES : public std::vector<EmailAddress>
{
public:
    using std::vector<EmailAddress>::vector;
    /// Appends a copy.
    void Add(const EmailAddress& address) { push_back(address); }
};

} // namespace kqlib
