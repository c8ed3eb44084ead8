/// What keys do.
#pragma once

#include <string>

#include "Page.h"
#include "View.h"

/// `none`: a key without a meaning here.
enum class KeyKind {
    text,
    enter,
    escape,
    backspace,
    up,
    down,
    pageUp,
    pageDown,
    home,
    end,
    resize,
    none
};

struct Key {
    KeyKind kind = KeyKind::text;
    std::string text;  ///< of KeyKind::text: one character
};

class Controls {
public:
    void press(const Key& key);

    /// Tells which rows came onto the page: scrolling goes on from there.
    void shown(const Page& page);

    const ViewState& state() const { return view; }
    bool wantsToQuit() const { return quit; }

private:
    bool scroll(KeyKind kind);
    void edit(const Key& key);
    void command(char letter);
    void sortByNeighbour(int step);
    void setHelp(bool help);

    ViewState view;
    std::size_t visible = 0;
    std::size_t firstBeforeHelp = 0;
    bool hasPools = false;
    bool quit = false;
};
