/// Pieces of text for the screen.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

/// What others have named, fit for a terminal: each character that is not printable, and each byte
/// that is no character, is a '?'. Characters beyond ASCII are kept if `utf8`; the locale must be
/// set then.
std::string shown(const std::string& bytes, bool utf8);

/// shown, with ASCII alone.
std::string inAscii(const std::string& bytes);

/// The columns that a text which is fit for a terminal takes.
std::size_t columnsOf(const std::string& text);

/// At most so many columns of it.
std::string cutTo(const std::string& text, std::size_t columns);

/// Exactly so many: cut, or filled up with blanks behind or in front.
std::string padded(const std::string& text, std::size_t columns);
std::string paddedLeft(const std::string& text, std::size_t columns);

/// Without the last character.
std::string withoutLast(const std::string& text);

/// "0.4s", "12s", "3m05s", "2h07m", "5d03h".
std::string asDuration(double seconds);

/// Processor time as top's TIME+: minutes, seconds and hundredths, "3:05.27"; "1000:05" or "16667h"
/// where that is too long. At most nine columns; begun hundredths don't count.
std::string asCpuTime(std::uint64_t nanoseconds);

/// "0.0", "99.9", "1234": at most five columns.
std::string asPercent(double percent);

/// "0", "0.5", "12", "12345", "123k", "12M": at most five columns.
std::string asRate(double perSecond);
