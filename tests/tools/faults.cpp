// Mistakes of a client of the pool, made on purpose: what valgrind-checks expects to be found.
#include <atomic>
#include <cstdio>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <boost/make_shared.hpp>

#include <ktthread/ktthread.h>

namespace {

using Pool = boost::shared_ptr<KT::KTThreadPool>;

class Task : public KT::KTTask {
public:
    explicit Task(std::function<void()> runBody) : body(std::move(runBody)) {}
    void run() override { body(); }

private:
    std::function<void()> body;
};

/// Has two workers run `body`, and waits until both are done.
void onTwoWorkers(const std::function<void()>& body)
{
    const Pool pool = boost::make_shared<KT::KTThreadPool>(2, 2, 0, 0, 0);
    pool->init(2, 2, 0, 0, 0);
    std::atomic<int> begun(0);
    std::atomic<int> done(0);
    for (int i = 0; i < 2; ++i) {
        pool->enqueue(boost::make_shared<Task>([&] {
            ++begun;
            while (begun < 2) {
                ro::os::msleep(1);
            }
            body();
            ++done;
        }));
    }
    while (done < 2) {
        pool->wake();
        ro::os::msleep(1);
    }
    pool->close();
}

/// Pools released without having been closed: each and its monitor hold each other. Several, since
/// the stack may still have a pointer to the last one. Without workers, whose stacks may have one,
/// too.
void leak()
{
    for (int i = 0; i < 5; ++i) {
        const Pool pool = boost::make_shared<KT::KTThreadPool>(0, 1, 0, 0, 0);
        pool->init(0, 1, 0, 0, 0);
    }
}

void invalidAccess()
{
    std::vector<char> text(8);
    onTwoWorkers([&] { std::printf("%d\n", text.data()[text.size()]); });
}

void race()
{
    const std::unique_ptr<int> sum(new int(0));  // DRD doesn't look at the stack
    onTwoWorkers([&] { ++*sum; });
}

void lockOrder()
{
    const auto first = KT::KTMutex::createKTMutex();
    const auto second = KT::KTMutex::createKTMutex();
    {
        const KT::KTCriticalSection holdFirst(first);
        const KT::KTCriticalSection holdSecond(second);
    }
    const KT::KTCriticalSection holdSecond(second);
    const KT::KTCriticalSection holdFirst(first);
}

}  // namespace

int main(int argc, char** argv)
{
    const std::string fault = argc > 1 ? argv[1] : "";
    if (fault == "leak") {
        leak();
    } else if (fault == "invalid-access") {
        invalidAccess();
    } else if (fault == "race") {
        race();
    } else if (fault == "lock-order") {
        lockOrder();
    } else {
        std::puts("faults leak|invalid-access|race|lock-order");
        return 2;
    }
    return 0;
}
