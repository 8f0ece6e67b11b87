#include "tests/peers/RunProgram.h"

#include "tests/peers/TempFolder.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace kqlib::test {

PROGRAMRESULT RunProgram(const std::string& program, const std::vector<std::string>& arguments)
{
    const TempFolder folder;
    const auto outputPath = folder / "output";
    std::string command = std::filesystem::path(program).make_preferred().string();
    for (const std::string& argument : arguments)
        command += " \"" + argument + (argument.ends_with('\\') ? "\\\"" : "\""); // one alone would escape the quote
    command += " >\"" + outputPath.string() + "\" 2>&1";
    PROGRAMRESULT result;
    result.success = std::system(command.c_str()) == 0;
    std::ifstream file(outputPath); // as text: the line ends of the system become LF
    result.output.assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    return result;
}

} // namespace kqlib::test
