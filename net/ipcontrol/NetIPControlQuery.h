// NetIPControlQuery: decides whether a rule list allows a connection.
#pragma once

#include "common/Types.h"
#include "platform/Export.h"

namespace kqlib {

class ADDRESSES;
class EmailAddress;
class NetDNSCache;
class NetIP;
class NetIPControl;
class NetIPControlEntry;
class NetIPControlIndex;

/// Walks a rule list from the top; the first rule that matches decides. What no rule matches is allowed, so an empty
/// list allows everything, and IsDenied is always the opposite of IsAllowed. A list that has decided often answers from
/// an index instead of being walked; its decisions and its name look-ups are the same.
///
/// local is the server's own address of the connection, peer the client's. The forms without mail addresses pass over
/// sender and recipient rules. In a reverse-host rule the rule's text alone is the pattern, and the name plain text,
/// whatever it holds; against a sender or recipient the mail address is the object of the wildcard match and the rule's
/// text its argument. Both directions are kept on purpose.
///
/// Ownership: borrows the cache, which must outlive it; keeps no other state and may be made for one check. Threads:
/// any, as long as nobody changes the list meanwhile. A host or reverse-host rule blocks the caller for a name look-up
/// (up to three times five seconds per silent server). Errors: a look-up that fails makes its rule not match.
class KQNET_API NetIPControlQuery
{
public:
    /// Borrows the cache, which its name look-ups ask first.
    explicit NetIPControlQuery(NetDNSCache& cache);
    /// The cache keeps what was looked up.
    virtual ~NetIPControlQuery();

    /// The verdict of the first rule that matches. A name look-up is only made for a rule that no earlier match has
    /// made needless.
    ///@{
    bool IsAllowed(const NetIPControl& rules, const NetIP& local, const NetIP& peer) const;
    bool IsDenied(const NetIPControl& rules, const NetIP& local, const NetIP& peer) const;
    bool IsAllowed(const NetIPControl& rules, const NetIP& local, const NetIP& peer, const EmailAddress& sender,
                   const ADDRESSES& recipients) const;
    bool IsDenied(const NetIPControl& rules, const NetIP& local, const NetIP& peer, const EmailAddress& sender,
                  const ADDRESSES& recipients) const;
    ///@}

    /// Whether one rule matches, for tools that explain a decision. The form without mail addresses never matches
    /// sender and recipient rules.
    ///@{
    bool DoesMatch(const NetIPControlEntry& rule, const NetIP& local, const NetIP& peer) const;
    bool DoesMatch(const NetIPControlEntry& rule, const NetIP& local, const NetIP& peer, const EmailAddress& sender,
                   const ADDRESSES& recipients) const;
    ///@}

private:
    /// What the forms with mail addresses have besides.
    struct MAIL
    {
        const EmailAddress& sender;
        const ADDRESSES& recipients;
    };

    /// mail: null in the forms without mail addresses.
    ///@{
    bool xIsAllowed(const NetIPControl& rules, const NetIP& local, const NetIP& peer, const MAIL* mail) const;
    bool xWalk(const NetIPControl& rules, const NetIP& local, const NetIP& peer, const MAIL* mail) const;
    bool xDecideByIndex(const NetIPControl& rules, const NetIPControlIndex& index, const NetIP& local,
                        const NetIP& peer, const MAIL* mail) const;
    bool xDoesMatch(const NetIPControlEntry& rule, const NetIP& local, const NetIP& peer, const MAIL* mail) const;
    ///@}
    bool xDoesHostMatch(const NetIPControlEntry& rule, const NetIP& peer) const;
    bool xDoesReverseHostMatch(const NetIPControlEntry& rule, const NetIP& peer) const;

    NetDNSCache& m_cache;
};

} // namespace kqlib
