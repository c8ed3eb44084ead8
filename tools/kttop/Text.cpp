#include "Text.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cwchar>

namespace {

/// One character at a place of a text.
struct Character {
    char32_t code = 0;
    std::size_t bytes = 1;
    bool valid = false;
};

bool isContinuation(char byte)
{
    return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U;
}

/// Bytes of the character that begins with `first`; 0: none does.
std::size_t lengthBy(unsigned char first)
{
    if (first < 0x80U) {
        return 1;
    }
    if (first >= 0xC2U && first < 0xE0U) {
        return 2;
    }
    if ((first & 0xF0U) == 0xE0U) {
        return 3;
    }
    return first >= 0xF0U && first < 0xF5U ? 4 : 0;
}

Character characterAt(const std::string& text, std::size_t at)
{
    const auto first = static_cast<unsigned char>(text[at]);
    const std::size_t length = lengthBy(first);
    if (length == 0 || at + length > text.size()) {
        return {};
    }
    char32_t code = length == 1 ? first : first & (0x7FU >> length);
    for (std::size_t i = 1; i < length; ++i) {
        if (!isContinuation(text[at + i])) {
            return {};
        }
        code = code << 6U | (static_cast<unsigned char>(text[at + i]) & 0x3FU);
    }
    // Longer than need be, half of a pair, beyond the last.
    const std::array<char32_t, 5> least = {0, 0, 0x80, 0x800, 0x10000};
    if (code < least.at(length) || (code >= 0xD800 && code < 0xE000) || code > 0x10FFFF) {
        return {};
    }
    return {code, length, true};
}

/// Columns of a character; below 1: it can't stand on a screen by itself.
int widthOf(char32_t code)
{
    if (code < 0x80) {
        return code >= 0x20 && code != 0x7F ? 1 : -1;
    }
    return wcwidth(static_cast<wchar_t>(code));
}

/// The bytes of `text` that take at most `columns`, and the columns that they take.
std::pair<std::size_t, std::size_t> prefix(const std::string& text, std::size_t columns)
{
    std::size_t taken = 0;
    std::size_t at = 0;
    while (at < text.size()) {
        const Character character = characterAt(text, at);
        const auto width = static_cast<std::size_t>(std::max(widthOf(character.code), 1));
        if (taken + width > columns) {
            break;
        }
        taken += width;
        at += character.bytes;
    }
    return {at, taken};
}

std::string formatted(const char* format, double number)
{
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), format, number);
    return text.data();
}

std::string twoDigits(std::uint64_t number)
{
    return (number < 10 ? "0" : "") + std::to_string(number);
}

std::string twoUnits(std::uint64_t large, const char* largeUnit, std::uint64_t small,
                     const char* smallUnit)
{
    return std::to_string(large) + largeUnit + twoDigits(small) + smallUnit;
}

}  // namespace

std::string shown(const std::string& bytes, bool utf8)
{
    std::string text;
    for (std::size_t at = 0; at < bytes.size();) {
        const Character character = characterAt(bytes, at);
        const bool printable =
            character.valid && widthOf(character.code) > 0 && (utf8 || character.code < 0x80);
        text += printable ? bytes.substr(at, character.bytes) : "?";
        at += character.bytes;
    }
    return text;
}

std::string inAscii(const std::string& bytes)
{
    return shown(bytes, false);
}

std::size_t columnsOf(const std::string& text)
{
    return prefix(text, std::string::npos - 2).second;
}

std::string cutTo(const std::string& text, std::size_t columns)
{
    return text.substr(0, prefix(text, columns).first);
}

std::string padded(const std::string& text, std::size_t columns)
{
    const auto [bytes, taken] = prefix(text, columns);
    return text.substr(0, bytes) + std::string(columns - taken, ' ');
}

std::string paddedLeft(const std::string& text, std::size_t columns)
{
    const auto [bytes, taken] = prefix(text, columns);
    return std::string(columns - taken, ' ') + text.substr(0, bytes);
}

std::string withoutLast(const std::string& text)
{
    std::size_t end = text.size();
    while (end > 0 && isContinuation(text[end - 1])) {
        --end;
    }
    return text.substr(0, end > 0 ? end - 1 : 0);
}

std::string asDuration(double seconds)
{
    if (seconds < 9.95) {
        return formatted("%.1fs", std::max(seconds, 0.0));
    }
    const auto whole = static_cast<std::uint64_t>(std::min(seconds, 1e15));
    if (whole < 60) {
        return std::to_string(whole) + "s";
    }
    if (whole < 3600) {
        return twoUnits(whole / 60, "m", whole % 60, "s");
    }
    if (whole < 86400) {
        return twoUnits(whole / 3600, "h", whole / 60 % 60, "m");
    }
    return twoUnits(whole / 86400, "d", whole / 3600 % 24, "h");
}

std::string asCpuTime(std::uint64_t nanoseconds)
{
    const std::uint64_t hundredths = nanoseconds / 10000000;
    const std::uint64_t seconds = hundredths / 100;
    const std::uint64_t minutes = seconds / 60;
    if (minutes >= 1000000) {
        return std::to_string(minutes / 60) + "h";
    }
    const std::string text = std::to_string(minutes) + ":" + twoDigits(seconds % 60);
    return minutes < 1000 ? text + "." + twoDigits(hundredths % 100) : text;
}

std::string asPercent(double percent)
{
    return formatted(percent < 999.95 ? "%.1f" : "%.0f", percent);
}

std::string asRate(double perSecond)
{
    if (perSecond < 9.95) {
        return perSecond < 0.05 ? "0" : formatted("%.1f", perSecond);
    }
    if (perSecond < 99999.5) {
        return formatted("%.0f", perSecond);
    }
    return perSecond < 999999.5 ? formatted("%.0fk", perSecond / 1e3)
                                : formatted("%.0fM", perSecond / 1e6);
}
