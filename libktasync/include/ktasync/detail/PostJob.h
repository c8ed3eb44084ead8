/// Jobs without futures.
#pragma once

#include <exception>
#include <string_view>
#include <utility>

#include <boost/smart_ptr/intrusive_ptr.hpp>

#include <ktasync/detail/Bound.h>
#include <ktasync/detail/Job.h>

namespace KT {
namespace detail {

/// A job that logs what its callable throws.
class KTASYNC_EXPORT PostJob : public Job {
public:
    using Job::Job;
    ~PostJob() override;

protected:
    void conclude(Outcome outcome, std::exception_ptr error) override;
};

template <typename Bound>
using PostCall = CallWithoutResult<PostJob, Bound>;

template <typename F, typename... Args>
boost::intrusive_ptr<Job> makePost(Scheduler& pool, std::string_view name, F&& callable,
                                   Args&&... args)
{
    using Call = BoundOf<F, Args...>;
    static_assert(Call::Call::possible,
                  "the callable can't be called with these arguments: it gets moved copies of them "
                  "(std::ref passes a reference), after a const KTStopToken& if it takes one");
    if constexpr (Call::Call::possible) {
        return new PostCall<Call>(pool, name, std::forward<F>(callable),
                                  std::forward<Args>(args)...);
    } else {
        return nullptr;
    }
}

}  // namespace detail
}  // namespace KT
