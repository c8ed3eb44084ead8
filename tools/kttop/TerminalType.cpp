#include "TerminalType.h"

#include <curses.h>
#include <term.h>

bool canShowPages()
{
    return cursor_address != nullptr;
}
