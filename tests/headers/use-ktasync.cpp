// Instantiates the templates of libktasync.
#include <ktasync/ktasync.h>

#include <list>
#include <string>
#include <vector>

int main()
{
    KT::KTScopedPool pool;
    const char* const text = "text";
    KT::KTFuture<std::size_t> length = KT::submit(
        pool, "length", [](const std::string& s) { return s.size(); }, text);
    KT::KTFuture<void> end = length.then([](std::size_t) {}).then("end", [] {});
    std::vector<void (*)()> calls = {[] {}};
    KT::submitAll(pool, calls);
    KT::submitAll(pool, "call", std::move(calls));
    KT::KTPromise<int> promise(pool, "promise");
    promise.setValue(1);
    KT::toStdFuture(promise.future()).get();
    KT::KTTaskGroup group(pool, 4);
    group.run([](const KT::KTStopToken& stop, int n) { return stop.stopRequested() ? n : 0; }, 1);
    group.tryRun("two", [] {});
    group.wait();
    KT::parallelFor(pool, 0, 10L, [](long) {});
    KT::parallelFor(pool, static_cast<unsigned char>(0), static_cast<unsigned char>(9), [](int) {});
    std::list<int> values = {1, 2};
    KT::parallelForEach(pool, values, [](int& value) { ++value; });
    KT::parallelForEach(pool, std::vector<int>{1}, [](int) {});
    const double sum = KT::parallelReduce(pool, 0, 10, 0.0, [](int i) { return 0.5 * i; });
    end.get();
    return sum > 0 ? 0 : 1;
}
