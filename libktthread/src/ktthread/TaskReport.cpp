#include <cstdio>
#include <mutex>

#include <ktthread/KTTask.h>
#include <ktthread/KTThread.h>

#include "TaskLink.h"
#include "TimeStamps.h"

namespace KT {

namespace {

std::string formatTime(const ro::os::timeval& time)
{
    const int days = time.tv_sec / 86400;
    const int ofDay = time.tv_sec % 86400;
    const int hours = ofDay / 3600;
    const int ofHour = ofDay % 3600;
    const unsigned long microseconds = static_cast<unsigned long>(time.tv_usec);
    char text[128];
    // A stamp of the wall clock is always more than a day: it is shown as the time of day. Anything
    // less, a stamp that isn't set or a duration, is shown with its days in front.
    if (days <= 0) {
        std::snprintf(text, sizeof text, "%4dj+%2dh%02dm%02d,%06lus", days, hours, ofHour / 60,
                      ofHour % 60, microseconds);
    } else {
        std::snprintf(text, sizeof text, "%2dh%02dm%02d,%06lus", hours, ofHour / 60, ofHour % 60,
                      microseconds);
    }
    return text;
}

std::string formatManager(const KTThread* worker)
{
    if (worker == nullptr) {
        return "Task not managed by any thread\n";
    }
    char address[19];
    // "%p" writes a prefix of its own; readers of these reports are used to both.
    std::snprintf(address, sizeof address, "0x%p", static_cast<const void*>(worker));
    return std::string("Task managed by: ") + address + "\n";
}

}  // namespace

std::string KTTask::toString() const
{
    boost::weak_ptr<KTThread> link;
    {
        const std::lock_guard<std::mutex> hold(core::taskLinkMutex(this));
        link = managingThread;
    }
    char stateText[16];
    std::snprintf(stateText, sizeof stateText, "%d", state.load());

    std::string report;
    report.reserve(1000);
    report.append("Name : ").append(taskName).append("\n");
    report.append("CreationTime : ").append(formatTime(core::readStamp(creationTime))).append("\n");
    report.append("ExecutionTime: ")
        .append(formatTime(core::readStamp(executionTime)))
        .append("\n");
    report.append("EndTime      : ").append(formatTime(core::readStamp(endTime))).append("\n");
    report.append(formatManager(link.lock().get()));
    report.append("State: ").append(stateText).append("\n");
    return report;
}

}  // namespace KT
