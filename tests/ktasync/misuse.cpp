// Each case must be refused by the compiler, with a message that says what is wrong.
#include <ktasync/ktasync.h>

#include <string>

int main()
{
    KT::KTScopedPool pool;
#if CASE == 1
    KT::submit(
        pool, "name", [](int) {}, std::string("no number"));
#elif CASE == 2
    KT::submit(
        pool, [](std::string&) {}, std::string("not wrapped"));
#elif CASE == 3
    KT::submit(pool, [] { return 1; }).then([](std::string) {});
#elif CASE == 4
    KT::KTTaskGroup(pool).run([](int) {});
#elif CASE == 5
    KT::parallelFor(pool, 0.5, 3.5, [](double) {});
#elif CASE == 6
    KT::KTPromise<int>(pool).setValue(std::string("no number"));
#elif CASE == 7
    KT::KTPromise<void>(pool).setValue(1);
#endif
}
