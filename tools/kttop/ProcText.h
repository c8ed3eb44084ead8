/// The texts of the files below /proc.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

struct StatText {
    std::string name;
    char state = '?';
    std::uint64_t cpuTicks = 0;
    std::uint64_t start = 0;  ///< clock ticks after the boot
};

/// Of a process's or a thread's "stat". The name may have anything in it, parentheses included.
std::optional<StatText> parseStat(const std::string& text);

struct StatusText {
    char state = '?';
    int threadGroup = 0;
    int innermost = 0;  ///< its number in the namespace that it is in; 0: not told
    std::uint64_t voluntary = 0;
    std::uint64_t involuntary = 0;
};

/// Of "status". Lines that are missing leave their fields as they are.
StatusText parseStatus(const std::string& text);

struct SchedstatText {
    std::uint64_t cpuNs = 0;
    std::uint64_t waitNs = 0;
    std::uint64_t slices = 0;  ///< times that it got a processor
};

/// Nothing for three zeros: a kernel writes them that doesn't keep these figures, and for a thread
/// that is yet to have a processor.
std::optional<SchedstatText> parseSchedstat(const std::string& text);

/// "wchan": empty unless it names a function.
std::string parseWchan(const std::string& text);
