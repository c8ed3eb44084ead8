#pragma once

#include <pthread.h>

namespace KT::core {

/// Sets the calling thread's cancel state for a scope: PTHREAD_CANCEL_ENABLE or
/// PTHREAD_CANCEL_DISABLE.
///
/// A worker can be cancelled only in its wait for a wake-up and inside a task's body. Anywhere else
/// a forced unwinding could start in a destructor, which ends the process, or halfway through a
/// line of output, which leaves the stream failed.
class CancelState {
public:
    explicit CancelState(int state) { pthread_setcancelstate(state, &previous); }
    ~CancelState() { pthread_setcancelstate(previous, nullptr); }
    CancelState(const CancelState&) = delete;
    CancelState& operator=(const CancelState&) = delete;

private:
    int previous = PTHREAD_CANCEL_ENABLE;
};

}  // namespace KT::core
