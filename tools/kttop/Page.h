/// Lines of text for a terminal, and how they look: nothing here knows of a terminal.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

enum class Style { plain, title, header, sorted, running, idle, fresh, sleeping, faint, warning };

struct Span {
    std::string text;
    Style style = Style::plain;
};

using Line = std::vector<Span>;

struct Size {
    std::size_t columns = 80;
    std::size_t lines = 24;
};

struct Page {
    std::vector<Line> lines;
    // What there is to scroll through, and which part of it is on the page.
    std::size_t rows = 0;
    std::size_t visible = 0;
    std::size_t first = 0;
    bool hasPools = false;  ///< POOL is a column to sort by
};

inline std::string textOf(const Line& line)
{
    std::string text;
    for (const Span& span : line) {
        text += span.text;
    }
    return text;
}
