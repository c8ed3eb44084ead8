/// What the terminal's description says. A file of its own: the description's header has macros for
/// names such as `lines` and `columns`.
#pragma once

/// Whether the cursor can be put anywhere, which a page takes. ncurses must have been started.
bool canShowPages();
