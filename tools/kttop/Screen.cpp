#include "Screen.h"

#include <array>
#include <clocale>
#include <cstdlib>
#include <cwchar>
#include <string>

#include <curses.h>

#include "TerminalType.h"

namespace {

/// How long an Esc waits for the rest of what a function key sends.
const int escapeDelayMs = 50;

enum ColourPair : short { greenPair = 1, yellowPair, cyanPair, bluePair, redPair };

std::string encoded(wint_t character)
{
    std::array<char, 16> bytes{};
    std::mbstate_t state{};
    const std::size_t length = std::wcrtomb(bytes.data(), static_cast<wchar_t>(character), &state);
    return length == static_cast<std::size_t>(-1) ? std::string()
                                                  : std::string(bytes.data(), length);
}

KeyKind functionKey(wint_t code)
{
    switch (code) {
        case KEY_UP: return KeyKind::up;
        case KEY_DOWN: return KeyKind::down;
        case KEY_PPAGE: return KeyKind::pageUp;
        case KEY_NPAGE: return KeyKind::pageDown;
        case KEY_HOME: return KeyKind::home;
        case KEY_END: return KeyKind::end;
        case KEY_RESIZE: return KeyKind::resize;
        case KEY_BACKSPACE: return KeyKind::backspace;
        case KEY_ENTER: return KeyKind::enter;
        default: return KeyKind::none;
    }
}

Key characterKey(wint_t character)
{
    switch (character) {
        case L'\r':
        case L'\n': return Key{KeyKind::enter, ""};
        case 27: return Key{KeyKind::escape, ""};
        case 8:
        case 127: return Key{KeyKind::backspace, ""};
        default: break;
    }
    std::string text = encoded(character);
    if (character < 32 || text.empty()) {
        return Key{KeyKind::none, ""};
    }
    return Key{KeyKind::text, std::move(text)};
}

}  // namespace

struct Screen::Terminal {
    SCREEN* screen;
};

Screen::Screen()
{
    SCREEN* const opened = newterm(nullptr, stdout, stdin);
    const char* const name = std::getenv("TERM");
    const std::string type = name != nullptr ? name : "";
    if (opened == nullptr) {
        throw ScreenError("the terminal type '" + type + "' (TERM) is not known");
    }
    if (!canShowPages()) {
        endwin();
        delscreen(opened);
        throw ScreenError("the terminal type '" + type + "' (TERM) has no way to show a page");
    }
    terminal = std::make_unique<Terminal>(Terminal{opened});
    set_escdelay(escapeDelayMs);
    cbreak();
    noecho();
    nonl();
    curs_set(0);
    keypad(stdscr, TRUE);
    nodelay(stdscr, TRUE);
    setUpColours();
}

Screen::~Screen()
{
    endwin();
    delscreen(terminal->screen);
}

void Screen::setUpColours()
{
    if (std::getenv("NO_COLOR") != nullptr || !has_colors() || start_color() == ERR ||
        use_default_colors() == ERR) {
        return;
    }
    colours = true;
    const short background = -1;
    init_pair(greenPair, COLOR_GREEN, background);
    init_pair(yellowPair, COLOR_YELLOW, background);
    init_pair(cyanPair, COLOR_CYAN, background);
    init_pair(bluePair, COLOR_BLUE, background);
    init_pair(redPair, COLOR_RED, background);
}

unsigned int Screen::attributesOf(Style style) const
{
    const auto colour = [this](ColourPair pair) {
        return colours ? static_cast<unsigned int>(COLOR_PAIR(pair)) : 0U;
    };
    switch (style) {
        case Style::plain: return A_NORMAL;
        case Style::title: return A_BOLD;
        case Style::header: return A_REVERSE;
        case Style::sorted: return A_BOLD | A_UNDERLINE;
        case Style::running: return colour(greenPair) | A_BOLD;
        case Style::idle: return colour(yellowPair);
        case Style::fresh: return colour(cyanPair);
        case Style::sleeping: return colour(bluePair);
        case Style::faint: return A_DIM;
        case Style::warning: break;
    }
    return colour(redPair) | A_BOLD | A_REVERSE;
}

Size Screen::size() const
{
    return {static_cast<std::size_t>(getmaxx(stdscr)), static_cast<std::size_t>(getmaxy(stdscr))};
}

void Screen::draw(const Page& page)
{
    erase();
    int y = 0;
    for (const Line& line : page.lines) {
        move(y++, 0);
        for (const Span& span : line) {
            attrset(static_cast<int>(attributesOf(span.style)));
            addnstr(span.text.data(), static_cast<int>(span.text.size()));
        }
    }
    attrset(A_NORMAL);
    wnoutrefresh(stdscr);
    doupdate();
}

std::optional<Key> Screen::key()
{
    wint_t code = 0;
    const int kind = get_wch(&code);
    if (kind == ERR) {
        return std::nullopt;
    }
    return kind == KEY_CODE_YES ? Key{functionKey(code), ""} : characterKey(code);
}
