#include "ProcText.h"

#include <array>
#include <charconv>
#include <string_view>

namespace {

/// Takes the number at the front of `text`, behind blanks.
template <typename Number>
bool takeNumber(std::string_view& text, Number& number)
{
    const std::size_t first = text.find_first_not_of(" \t");
    if (first == std::string_view::npos) {
        return false;
    }
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data() + first, end, number);
    text = std::string_view(rest, static_cast<std::size_t>(end - rest));
    return error == std::errc();
}

/// What follows "NAME:" at a line's start; empty if there is no such line.
std::string_view valueOf(std::string_view text, std::string_view lineStart)
{
    const std::size_t found = text.find(lineStart);
    return found == std::string_view::npos ? std::string_view()
                                           : text.substr(found + lineStart.size());
}

}  // namespace

std::optional<StatText> parseStat(const std::string& text)
{
    const std::size_t open = text.find('(');
    const std::size_t close = text.rfind(')');
    if (open == std::string::npos || close == std::string::npos || close < open ||
        close + 3 > text.size()) {
        return std::nullopt;
    }
    StatText stat;
    stat.name = text.substr(open + 1, close - open - 1);
    stat.state = text[close + 2];
    // Fields 4 to 22, as proc(5) counts them.
    std::string_view rest = std::string_view(text).substr(close + 3);
    std::array<std::int64_t, 23> fields{};
    for (std::size_t i = 4; i < fields.size(); ++i) {
        if (!takeNumber(rest, fields.at(i))) {
            return std::nullopt;
        }
    }
    stat.cpuTicks = static_cast<std::uint64_t>(fields[14] + fields[15]);
    stat.start = static_cast<std::uint64_t>(fields[22]);
    return stat;
}

StatusText parseStatus(const std::string& text)
{
    StatusText status;
    const std::string_view state = valueOf(text, "\nState:\t");
    if (!state.empty()) {
        status.state = state.front();
    }
    std::string_view group = valueOf(text, "\nTgid:\t");
    takeNumber(group, status.threadGroup);
    std::string_view numbers = valueOf(text, "\nNSpid:\t");
    while (takeNumber(numbers, status.innermost)) {
    }
    std::string_view voluntary = valueOf(text, "\nvoluntary_ctxt_switches:\t");
    takeNumber(voluntary, status.voluntary);
    std::string_view involuntary = valueOf(text, "\nnonvoluntary_ctxt_switches:\t");
    takeNumber(involuntary, status.involuntary);
    return status;
}

std::optional<SchedstatText> parseSchedstat(const std::string& text)
{
    SchedstatText figures;
    std::string_view rest = text;
    if (!takeNumber(rest, figures.cpuNs) || !takeNumber(rest, figures.waitNs) ||
        !takeNumber(rest, figures.slices) || figures.slices == 0) {
        return std::nullopt;
    }
    return figures;
}

std::string parseWchan(const std::string& text)
{
    return text == "0" ? std::string() : text;
}
