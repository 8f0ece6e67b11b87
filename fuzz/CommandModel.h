// CommandModel: what a stream of bytes is as commands, said of the whole stream at once.
#pragma once

#include "common/String.h"

#include <algorithm>
#include <cstddef>
#include <string_view>
#include <vector>

namespace kqlib::fuzz {

struct COMMAND
{
    String text;
    bool tooLong = false;
    std::size_t end = 0; ///< offset of the first byte behind it

    friend bool operator==(const COMMAND&, const COMMAND&) = default;
};

/// The rules of one reader.
struct COMMANDRULES
{
    bool loneLFEnds = false;
    std::size_t limit = 1;      ///< a command of so many bytes is too long, its line end still to come
    bool crCarriesOver = false; ///< a CR that made a command too long still belongs to an LF that follows it
};

/// The end of the line that begins at start: the offset of the first LF that ends it, or npos.
inline std::size_t FindLineEnd(std::string_view stream, std::size_t start, const COMMANDRULES& rules)
{
    std::size_t found = stream.find('\n', start);
    for (; found != std::string_view::npos; found = stream.find('\n', found + 1)) {
        const bool followsCR = found > (rules.crCarriesOver ? 0 : start) && stream[found - 1] == '\r';
        if (followsCR || rules.loneLFEnds)
            break;
    }
    return found;
}

/// All commands of the stream. Behind the end of the last one stands what is not complete.
inline std::vector<COMMAND> SplitStream(std::string_view stream, const COMMANDRULES& rules)
{
    std::vector<COMMAND> commands;
    const std::size_t limit = std::max<std::size_t>(rules.limit, 1);
    std::size_t start = 0;
    for (;;) {
        const std::size_t lineEnd = FindLineEnd(stream, start, rules);
        if (lineEnd - start >= limit && stream.size() - start >= limit) { // also for npos
            commands.push_back({String(stream.substr(start, limit)), true, start + limit});
        } else if (lineEnd != std::string_view::npos) {
            std::string_view text = stream.substr(start, lineEnd - start);
            if (text.ends_with('\r'))
                text.remove_suffix(1);
            commands.push_back({String(text), false, lineEnd + 1});
        } else {
            return commands;
        }
        start = commands.back().end;
    }
}

} // namespace kqlib::fuzz
