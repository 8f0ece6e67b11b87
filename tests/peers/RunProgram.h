// RunProgram: starts a program as a user would, waits for its end and takes what it printed.
#pragma once

#include <string>
#include <vector>

namespace kqlib::test {

struct PROGRAMRESULT
{
    bool success = false; ///< it ran and ended with 0
    std::string output;   ///< standard output and standard error
};

/// program: path of the program. Arguments may hold blanks but no double quotes or other signs of a command line.
PROGRAMRESULT RunProgram(const std::string& program, const std::vector<std::string>& arguments);

} // namespace kqlib::test
