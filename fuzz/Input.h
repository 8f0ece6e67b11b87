// Input: takes choices off the front of a fuzzer's bytes and leaves the rest to the parser.
#pragma once

#include "common/String.h"

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace kqlib::fuzz {

/// Borrows the bytes. Choices that are not there any more read as 0.
class Input
{
public:
    Input(const std::uint8_t* data, std::size_t size)
        : m_left(reinterpret_cast<const char*>(data), size)
    {
    }

    std::uint8_t Byte()
    {
        if (m_left.empty())
            return 0;
        const auto byte = static_cast<std::uint8_t>(m_left.front());
        m_left.remove_prefix(1);
        return byte;
    }
    /// Up to 7 sizes of pieces that something arrives in, behind the byte that says how many. At least one is above 0,
    /// so that all of it arrives in the end.
    std::vector<std::size_t> Pieces()
    {
        std::vector<std::size_t> sizes;
        std::size_t sum = 0;
        for (unsigned count = Byte() % 8; count > 0; --count) {
            sizes.push_back(Byte());
            sum += sizes.back();
        }
        if (sum == 0)
            sizes.push_back(SIZE_MAX);
        return sizes;
    }
    /// The text up to the next LF, which is left out, or up to the end.
    String Line()
    {
        const std::size_t end = m_left.find('\n');
        const String line(m_left.substr(0, end));
        m_left.remove_prefix(end == std::string_view::npos ? m_left.size() : end + 1);
        return line;
    }
    std::string_view Rest() const { return m_left; }

private:
    std::string_view m_left;
};

} // namespace kqlib::fuzz
