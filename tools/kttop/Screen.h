/// The terminal, by way of ncurses: nothing else in the program knows of it.
#pragma once

#include <cstdio>
#include <memory>
#include <optional>
#include <stdexcept>

#include "Controls.h"
#include "Page.h"

/// The terminal can't show a page.
class ScreenError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// Takes the terminal over, and gives it back in the end. There is one at a time.
class Screen {
public:
    /// The locale must be set. Throws ScreenError.
    Screen();
    ~Screen();
    Screen(const Screen&) = delete;
    Screen& operator=(const Screen&) = delete;

    Size size() const;

    /// Puts the page on the screen: only what differs from the last one is sent to the terminal.
    void draw(const Page& page);

    /// The next key that was pressed, without waiting; nothing if none was.
    std::optional<Key> key();

private:
    void setUpColours();
    unsigned int attributesOf(Style style) const;

    struct Terminal;  ///< ncurses' own
    std::unique_ptr<Terminal> terminal;
    bool colours = false;
};
