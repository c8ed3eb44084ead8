/// Static probes: places in the code that bpftrace, perf, SystemTap and gdb find by name. A probe
/// that no tool uses is one instruction that does nothing. An argument is a description of where it
/// can be read; no instruction computes it. docs/debugging.md lists the probes.
#pragma once

#ifdef KT_PROBES

#ifndef __LP64__
#error "the sizes of the arguments are those of a 64-bit system: build with KT_PROBES off"
#endif
#include <sys/sdt.h>

/// An argument: what is in memory at this place, or a constant. Never a value to be loaded first.
#define KT_AT(place) "m"(place)
#define KT_IS(constant) "n"(constant)

/// The name of a task, a pointer to characters that end with a null: a std::string of libstdc++
/// begins with it.
#ifndef __GLIBCXX__
#error "probes know the strings of libstdc++ only: build with KT_PROBES off"
#endif
#define KT_NAME_OF(task) KT_AT((task).taskName)

/// sys/sdt.h's note with our own description: its macros would load each argument.
#define KT_PROBE_FORMAT(format) "\t.ascii \"" format "\"\n"
#define KT_PROBE_NOTE(event, format) \
    _SDT_ASM_BODY(ktthread, event, KT_PROBE_FORMAT, (format), unused) _SDT_ASM_BASE

// The operands come with their constraints, and can't be in parentheses.
// NOLINTBEGIN(bugprone-macro-parentheses)

/// The name of a pool, a pointer to characters that end with a null: its settings begin with it.
#define KT_NAME_OF_POOL(pool) KT_AT((pool)->settings)

/// The arguments of each probe: pool, name of the task (0: none), index of the worker (-1: none),
/// length of the queue, name of the pool.
#define KT_PROBE(event, pool, name, worker, queued)                                \
    __asm__ volatile inline(                                                       \
        KT_PROBE_NOTE(event, "8@%[arg0] 8@%[arg1] -4@%[arg2] 8@%[arg3] 8@%[arg4]") \
        :                                                                          \
        : [arg0] "rm"(pool), [arg1] name, [arg2] worker, [arg3] queued,            \
          [arg4] KT_NAME_OF_POOL(pool))

/// Those of a probe of a pool as a whole, which are as many as bpftrace takes: pool, its name, -1,
/// length of the queue, number of workers, `last`.
#define KT_POOL_PROBE(event, pool, queued, workers, last)                                  \
    __asm__ volatile inline(                                                               \
        KT_PROBE_NOTE(event, "8@%[arg0] 8@%[arg1] -4@$-1 8@%[arg3] -4@%[arg4] -4@%[arg5]") \
        :                                                                                  \
        : [arg0] "rm"(pool), [arg1] KT_NAME_OF_POOL(pool), [arg3] queued, [arg4] workers,  \
          [arg5] last)

// NOLINTEND(bugprone-macro-parentheses)

#else

#define KT_AT(place) static_cast<void>(place)
#define KT_IS(constant) static_cast<void>(constant)
#define KT_NAME_OF(task) static_cast<void>(task)
#define KT_PROBE(event, pool, name, worker, queued) \
    do {                                            \
        static_cast<void>(pool);                    \
        name;                                       \
        worker;                                     \
        queued;                                     \
    } while (false)
#define KT_POOL_PROBE(event, pool, queued, workers, last) \
    do {                                                  \
        static_cast<void>(pool);                          \
        queued;                                           \
        workers;                                          \
        last;                                             \
    } while (false)

#endif
