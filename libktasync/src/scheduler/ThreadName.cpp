#include "ThreadName.h"

#include <cstdio>

#include <ktthread/KTThread.h>

namespace KT {
namespace detail {

void showTaskName(std::string_view task)
{
    char name[40];
    std::snprintf(name, sizeof name, "KTTask: %.*s [running]", static_cast<int>(task.size()),
                  task.data());
    KTThread::setThreadName(name);
}

}  // namespace detail
}  // namespace KT
