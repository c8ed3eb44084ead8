#include <ktasync/KTTaskGroup.h>

#include <exception>
#include <string>

#include <kterror/KTError.h>

#include "Unseen.h"

namespace KT {

namespace {

void refuseIf(bool nonsense, const char* method, const std::string& why)
{
    if (nonsense) {
        throw KTError("KTTaskGroup", method, why, __FILE__, __LINE__);
    }
}

void throwFirst(const detail::Group::Account& account, const detail::Group& group)
{
    if (account.first) {
        std::rethrow_exception(account.first);
    }
    if (account.lost) {
        throw KTCancelled(std::string(group.pool().defaultName().view()));
    }
}

}  // namespace

KTTaskGroup::KTTaskGroup(const KTPoolRef& pool, int limit)
    : group(new detail::Group(pool, limit)), exceptionsAround(std::uncaught_exceptions())
{
    refuseIf(limit < 0, "KTTaskGroup",
             "limit is " + std::to_string(limit) + ": it must be 0 or more");
}

KTTaskGroup::~KTTaskGroup()
{
    const detail::Group::Account account =
        group->close(std::uncaught_exceptions() > exceptionsAround);
    if (account.first) {
        detail::logUnseen(group->pool().defaultName().view(), account.first);
    }
}

void KTTaskGroup::wait()
{
    waitFor(-1);
}

bool KTTaskGroup::waitFor(int milliseconds)
{
    refuseIf(group->isCallersOwn(), "wait", "called in a task of the group, which it waits for");
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
