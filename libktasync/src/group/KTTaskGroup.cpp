#include <ktasync/KTTaskGroup.h>

#include <exception>
#include <string>

#include <kterror/KTError.h>

#include "../base/Warnings.h"
#include "../scheduler/Scheduler.h"

namespace KT {

namespace {

void throwFirst(const detail::Group::Account& account, const detail::Group& group)
{
    if (account.first) {
        std::rethrow_exception(account.first);
    }
    if (account.lost) {
        throw KTCancelled(std::string(group.name().view()));
    }
}

}  // namespace

KTTaskGroup::KTTaskGroup(const KTPoolRef& pool, int limit, Waiters waiters)
    : group(new detail::Group(pool, limit, waiters == Waiters::help)),
      exceptionsAround(std::uncaught_exceptions())
{
    if (limit < 0) {
        throw KTError("KTTaskGroup", "KTTaskGroup",
                      "limit is " + std::to_string(limit) + ": it must be 0 or more", __FILE__,
                      __LINE__);
    }
}

KTTaskGroup::~KTTaskGroup()
{
    const detail::Group::Account account =
        group->close(std::uncaught_exceptions() > exceptionsAround);
    if (account.first) {
        detail::logUnseen(group->scheduler().label(), group->name().view(), account.first);
    }
}

void KTTaskGroup::wait()
{
    waitFor(-1);
}

bool KTTaskGroup::waitFor(int milliseconds)
{
    if (!group->wait(milliseconds)) {
        return false;
    }
    throwFirst(group->settle(), *group);
    return true;
}

void KTTaskGroup::cancel()
{
    group->cancel();
}

}  // namespace KT
