#include "ThreadName.h"

#include <array>

#include <ktthread/KTThread.h>

namespace KT {
namespace detail {

namespace {

/// The kernel keeps so many bytes, and a null.
const std::size_t longestName = 15;

const std::string_view beforeTask = "KTTask: ";
const std::string_view afterTask = " [running]";

}  // namespace

// By hand: printf is no longer in the processor's caches when a carrier is woken.
void showTaskName(std::string_view task)
{
    std::array<char, longestName + 1> name{};
    std::size_t length = 0;
    for (const std::string_view part : {beforeTask, task, afterTask}) {
        length += part.copy(name.data() + length, longestName - length);
    }
    KTThread::setThreadName(name.data());
}

}  // namespace detail
}  // namespace KT
