// DataTable: the tables of expected values in tests/data.
#pragma once

#include <fstream>
#include <string>
#include <vector>

namespace kqlib::test {

/// The lines of a file of tests/data as lists of fields (separated by TAB), without those that begin with "#". Empty
/// when the file cannot be read.
inline std::vector<std::vector<std::string>> ReadDataTable(const std::string& name)
{
    std::vector<std::vector<std::string>> rows;
    std::ifstream file(std::string(KQ_TEST_DATA "/") + name, std::ios::binary);
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with('#'))
            continue;
        std::vector<std::string> fields;
        for (std::size_t from = 0; from != std::string::npos;) {
            const std::size_t end = line.find('\t', from);
            fields.push_back(line.substr(from, end == std::string::npos ? end : end - from));
            from = end == std::string::npos ? end : end + 1;
        }
        rows.push_back(fields);
    }
    return rows;
}

} // namespace kqlib::test
