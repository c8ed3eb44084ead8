/// Annotations for clang's thread-safety analysis (-Wthread-safety). Empty for other compilers. Not
/// for clients.
#pragma once

#ifdef __clang__
/// A member that is accessed only with that mutex held. \ingroup ktthread_own
#define KT_GUARDED_BY(mutex) __attribute__((guarded_by(mutex)))
/// A function that needs no lock for another reason, which its comment gives. \ingroup ktthread_own
#define KT_NOT_ANALYSED __attribute__((no_thread_safety_analysis))
#else
#define KT_GUARDED_BY(mutex)
#define KT_NOT_ANALYSED
#endif
