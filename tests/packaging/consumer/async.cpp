// A client of libktasync.
#include <cstdio>

#include <ktasync/ktasync.h>

int main()
{
    KT::KTScopedPool pool;
    std::printf("%d\n", KT::submit(pool, "answer", [] { return 42; }).get());
}
