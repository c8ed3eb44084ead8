#include "Controls.h"

#include <algorithm>
#include <limits>

#include "Text.h"

namespace {

/// More than there can be; the page tells where it ends.
const std::size_t theEnd = std::numeric_limits<std::size_t>::max();

/// Nobody types a longer one.
const std::size_t longestFilter = 100;

std::size_t less(std::size_t from, std::size_t by)
{
    return from - std::min(from, by);
}

}  // namespace

void Controls::press(const Key& key)
{
    if (key.kind == KeyKind::resize || key.kind == KeyKind::none || scroll(key.kind)) {
        return;
    }
    if (view.help) {
        setHelp(false);
        quit = key.text == "q";
    } else if (view.editingFilter) {
        edit(key);
    } else if (key.kind == KeyKind::escape) {
        view.filter.clear();
    } else if (key.kind == KeyKind::text && key.text.size() == 1) {
        command(key.text.front());
    }
}

bool Controls::scroll(KeyKind kind)
{
    const std::size_t page = std::max<std::size_t>(visible, 1);
    switch (kind) {
        case KeyKind::up: view.first = less(view.first, 1); return true;
        case KeyKind::down: view.first += 1; return true;
        case KeyKind::pageUp: view.first = less(view.first, page); return true;
        case KeyKind::pageDown: view.first += page; return true;
        case KeyKind::home: view.first = 0; return true;
        case KeyKind::end: view.first = theEnd; return true;
        default: return false;
    }
}

void Controls::edit(const Key& key)
{
    switch (key.kind) {
        case KeyKind::escape:
            view.filter.clear();
            view.editingFilter = false;
            break;
        case KeyKind::enter: view.editingFilter = false; break;
        case KeyKind::backspace: view.filter = withoutLast(view.filter); break;
        default:
            if (view.filter.size() < longestFilter) {
                view.filter += key.text;
            }
    }
    view.first = 0;
}

void Controls::command(char letter)
{
    switch (letter) {
        case 'q': quit = true; break;
        case 'h':
        case '?': setHelp(true); break;
        case ' ': view.paused = !view.paused; break;
        case '/': view.editingFilter = true; break;
        case 's': sortByNeighbour(1); break;
        case 'S': sortByNeighbour(-1); break;
        case 'r': view.sorting.reverse = !view.sorting.reverse; break;
        default: break;
    }
}

void Controls::sortByNeighbour(int step)
{
    int next = static_cast<int>(view.sorting.column);
    do {
        next = (next + step + columnCount) % columnCount;
    } while (static_cast<Column>(next) == Column::pool && !hasPools);
    view.sorting = {static_cast<Column>(next), false};
}

void Controls::setHelp(bool help)
{
    view.help = help;
    std::swap(view.first, firstBeforeHelp);
    if (help) {
        view.first = 0;
    }
}

void Controls::shown(const Page& page)
{
    view.first = page.first;
    visible = page.visible;
    hasPools = page.hasPools;
}
