// RuleFile: a list of address rules from a file of a person.
#pragma once

#include "net/ipcontrol/NetIPControlEntry.h"

#include <string>
#include <vector>

namespace kq {

/// One rule of a file and where it stands, or a text in its place that is no rule.
struct FILERULE
{
    kqlib::NetIPControlEntry rule;
    std::string text;  ///< as it stands in the file
    std::string where; ///< "line 3", "connection_rules[2]"
    bool isRule = false;
};

using FILERULES = std::vector<FILERULE>;

/// Reads a file of rules, one a line, where "#" begins a comment line; or a JSON file: a list of texts, an object that
/// holds one under key, or the file form of SettingsTransportSet, where the list is the sub-set key or the whole file.
/// A rule's text may hold "#". False: error says why.
bool ReadRuleFile(const std::string& path, const std::string& key, FILERULES& rules, std::string& error);

} // namespace kq
