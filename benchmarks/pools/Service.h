/// What the tasks of this library are by design, for pools whose tasks are bare calls: an object on
/// the heap, stamped when it is made, whose worker's thread carries its name, before and after the
/// body, and which tells its state.
#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <utility>

#include <sys/prctl.h>

#include <ro/os.h>

template <typename Body>
class Serviced {
public:
    explicit Serviced(Body bodyToRun)
        : body(std::move(bodyToRun)), name("undefined"), created(ro::os::gettimeofday())
    {
    }

    void run()
    {
        state = 1;
        show(" [running]");
        body();
        show(" [finished]");
        state = 2;
    }

private:
    void show(const char* what) const
    {
        prctl(PR_SET_NAME, ("KTTask: " + name + what).c_str(), 0, 0, 0);
    }

    Body body;
    std::string name;
    ro::os::timeval created;
    std::atomic<int> state{0};
};

/// Submits `body` with all that; a pool whose tasks are like that anyway says so by `givesService`.
template <typename Pool, typename Body>
void submitServiced(Pool& pool, const Body& body)
{
    if constexpr (Pool::givesService) {
        pool.submit(body);
    } else {
        pool.submit([task = std::make_shared<Serviced<Body>>(body)] { task->run(); });
    }
}
