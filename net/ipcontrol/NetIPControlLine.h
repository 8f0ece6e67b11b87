// NetIPControlLine: which rule matches an address first, for the addresses of one type. Inside the library only.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <map>
#include <utility>
#include <vector>

namespace kqlib {

/// The addresses of one type are the points of a line, and a rule covers a stretch of it: an address, a range, or the
/// addresses under a mask whose bits are set from the left. The line is cut where the first rule that matches changes,
/// so a binary search finds that rule. For each mask with its bits set otherwise there is a line more, of addresses
/// under the mask.
///
/// KEY: an address as an unsigned number, with the operators ~, &, | and + and with an order.
///
/// Ownership: a plain value. Threads: any, as long as it does not change. Errors: std::bad_alloc from its constructor
/// and from the builder.
template <class KEY> class NetIPControlLine
{
public:
    /// No rule.
    static constexpr std::uint32_t NONE = 0xFFFFFFFFU;

    /// Takes the rules, from the last of the list to the first. They are painted over one another, so that each point
    /// keeps the colour of the first rule that covers it.
    class BUILDER
    {
    public:
        /// A rule for the addresses from low to high, both included; low must not be above high.
        void AddRange(const KEY& low, const KEY& high, std::uint32_t rule) { xPaint(m_lines[~KEY{}], low, high, rule); }
        /// A rule for the addresses that equal ip in the bits of mask.
        void AddMask(const KEY& ip, const KEY& mask, std::uint32_t rule)
        {
            const KEY rest = ~mask;
            if ((rest & (rest + 1)) == KEY{})
                AddRange(ip & mask, ip | rest, rule);
            else
                xPaint(m_lines[mask], ip & mask, ip & mask, rule);
        }

    private:
        friend class NetIPControlLine;
        /// Where a section begins, and its rule. It ends where the next one begins.
        using SECTIONS = std::map<KEY, std::uint32_t>;

        static void xPaint(SECTIONS& line, const KEY& low, const KEY& high, std::uint32_t rule)
        {
            line.emplace(KEY{}, NONE); // a new line is one section without a rule
            auto end = line.end();
            if (high != ~KEY{}) // what lies behind the range keeps its rule
                end = line.emplace(high + 1, std::prev(line.upper_bound(high))->second).first;
            line.erase(line.lower_bound(low), end);
            line.emplace(low, rule);
        }

        std::map<KEY, SECTIONS> m_lines; ///< by mask
    };

    /// Without rules.
    NetIPControlLine() = default;
    /// With those that the builder was given.
    explicit NetIPControlLine(const BUILDER& builder)
    {
        for (const auto& [mask, sections] : builder.m_lines) {
            LINE& line = m_lines.emplace_back();
            line.mask = mask;
            for (const auto& [start, rule] : sections)
                if (line.sections.empty() || line.sections.back().rule != rule)
                    line.sections.push_back({start, rule});
            for (std::size_t place = 0; place < line.sections.size(); place += BLOCK)
                line.blocks.push_back(line.sections[place].start);
        }
    }

    /// The first rule that matches, or NONE.
    std::uint32_t FindFirst(const KEY& key) const
    {
        std::uint32_t first = NONE;
        for (const LINE& line : m_lines)
            first = std::min(first, line.Find(key & line.mask));
        return first;
    }

private:
    /// Ends where the next one begins.
    struct SECTION
    {
        KEY start;
        std::uint32_t rule; ///< the first that matches there, or NONE
    };
    /// Sections in a block: a few cache lines. The search finds the block first, in an array that is small enough to
    /// stay in the processor's caches, so that a search of a long line waits for memory once or twice.
    static constexpr std::size_t BLOCK = 16;

    struct LINE
    {
        KEY mask{};
        std::vector<SECTION> sections; ///< ascending; the first starts at 0
        std::vector<KEY> blocks;       ///< where each block of sections starts

        /// The rule of the last section that starts at or before the key.
        std::uint32_t Find(const KEY& key) const
        {
            const auto block = std::upper_bound(blocks.begin(), blocks.end(), key) - blocks.begin() - 1;
            const std::size_t begin = static_cast<std::size_t>(block) * BLOCK;
            const std::size_t end = std::min(begin + BLOCK, sections.size());
            const SECTION* const behind =
                std::upper_bound(&sections[begin], sections.data() + end, key,
                                 [](const KEY& wanted, const SECTION& section) { return wanted < section.start; });
            return behind[-1].rule;
        }
    };

    std::vector<LINE> m_lines;
};

} // namespace kqlib
