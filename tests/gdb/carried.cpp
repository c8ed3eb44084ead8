/// A program with a pool of libktasync in a known state, for gdb to look at once it comes to
/// atRest().
#include <future>

#include <ktasync/ktasync.h>

extern "C" {
__attribute__((noinline)) void atRest();
}

void atRest()
{
    asm volatile("");
}

int main()
{
    std::promise<void> gate;
    const std::shared_future<void> opened = gate.get_future().share();
    KT::KTPoolOptions options;
    options.threads = 1;
    options.maxThreads = 1;
    options.name = "render";
    KT::KTScopedPool pool(options);
    std::promise<void> begins;
    KT::post(pool, "hash", [&begins, opened] {
        begins.set_value();
        opened.wait();
    });
    begins.get_future().wait();
    KT::post(pool, "first", [] {});
    KT::submit(pool, "second", [] {});
    atRest();
    gate.set_value();
}
