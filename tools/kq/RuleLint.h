// RuleLint: what surprises people in a list of address rules.
#pragma once

#include "tools/kq/RuleFile.h"

#include <string>
#include <vector>

namespace kq {

/// One remark about a list.
struct REMARK
{
    bool isError = false;
    std::string where; ///< as in FILERULE; empty: the whole list
    std::string text;
};

/// Looks through a list: texts that are no rules and the codes of the rules' own checks (errors); rules that can never
/// be reached, allow rules that trust reverse names, a list of allow rules without a final deny, addresses in the place
/// of host names, mask rules with bits that no peer is compared in (warnings).
std::vector<REMARK> LintRules(const FILERULES& rules);

} // namespace kq
