/// Ctrl-C and its like.
#pragma once

/// From now on the first SIGINT or SIGTERM is only noted; a second one ends the process as usual.
/// A closed output pipe ends the process quietly, however it was started.
void watchForInterrupts();

/// The signal noted; 0 if there was none.
int interrupted();
