// CertFacts: what a certificate or a signing request says of itself, in words.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace kq {

/// Label and text, in the order in which they are shown. Texts of the file are made fit to print.
using CERTFACTS = std::vector<std::pair<std::string, std::string>>;

/// Reads the first certificate of a PEM file, or the first signing request when it holds no certificate. False: neither
/// can be read; facts is then empty.
bool ReadCertFacts(const std::string& path, CERTFACTS& facts);

} // namespace kq
