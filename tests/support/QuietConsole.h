/// Silence on the console.
#pragma once

#include <iostream>
#include <streambuf>

/// Discards what is written to std::cout, where pools report each retirement.
class QuietConsole : private std::streambuf {
public:
    QuietConsole() : previous(std::cout.rdbuf(this)) {}
    ~QuietConsole() override { std::cout.rdbuf(previous); }
    QuietConsole(const QuietConsole&) = delete;
    QuietConsole& operator=(const QuietConsole&) = delete;

private:
    int_type overflow(int_type character) override { return traits_type::not_eof(character); }
    std::streamsize xsputn(const char*, std::streamsize size) override { return size; }

    std::streambuf* previous;
};
