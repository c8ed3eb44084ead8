#include "Help.h"

const std::vector<std::string>& helpLines()
{
    static const std::vector<std::string> lines = {
        "kttop: the workers of a process that uses libktthread",
        "s S        sort by the next column, the one before   r  the other way round",
        "/          only workers whose task or pool has a text in its name; Esc shows all",
        "space      stop here, go on (samples are taken all the same)",
        "arrows, page up and down, home, end   scroll",
        "h ?        this help                                 q  end",
        "",
        "STATE      what the thread's name says: running (a task that has just finished",
        "           included), sleeping, idle (awake, between tasks), new",
        "TASK       the kernel keeps 15 bytes of a thread's name: \"KTTask: \" and the",
        "           first 7 of the task's name, so image-r may be image-resize",
        "POOL       the pool's name; no column where no pool has one",
        "CPU% WAIT% share of a processor; share of time ready to run without getting one",
        "TIME+      processor time since the worker's start: minutes, seconds, hundredths",
        "SINCE      for how long each look has found the worker so; +: it was so at the",
        "           first look, too. Tasks of one name after another look like one.",
        "VOL/S      context switches a second because the worker waited for something",
        "INV/S      ... because the kernel gave the processor to another thread",
        "S          the kernel's state, as ps shows it: R runs or is ready, S sleeps, ...",
        "WAITS IN   the kernel's function in which it sleeps, where that may be read",
        "           (these four are read for the rows on the page, and - is not known)",
        "last ...:  tasks seen most often in the time of the history line, with their",
        "           share of all looks at workers that ran one",
    };
    return lines;
}
