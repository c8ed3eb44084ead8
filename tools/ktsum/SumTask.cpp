#include "SumTask.h"

#include <cerrno>
#include <cstring>
#include <exception>
#include <system_error>
#include <utility>

Board::Board() : mutex(KT::KTMutex::createKTMutex()), done(KT::KTCondition::createKTCondition()) {}

SumTask::SumTask(Entry entryToSum, const Digest& digest, Board& sharedBoard)
    : what(std::move(entryToSum)), digestToUse(digest), board(sharedBoard)
{
    // Seven characters of it are seen: those of the file rather than of its directory.
    setTaskName(what.path.substr(what.path.rfind('/') + 1));
}

void SumTask::run()
{
    setExecutionTime();
    compute();
    ++board.files;
    setEndTime();
    const KT::KTCriticalSection hold(board.mutex);
    finished = true;
    if (board.awaited == this) {
        board.done->signal();
    }
}

void SumTask::compute()
{
    if (!what.error.empty()) {
        return;
    }
    try {
        sum = digestOf(digestToUse, what.path, [this](std::size_t size) {
            board.bytes += size;
            return !stop;
        });
        if (stop) {
            what.error = "interrupted";
        }
    } catch (const std::system_error& error) {
        missing = error.code().value() == ENOENT;
        what.error = std::strerror(error.code().value());
    } catch (const std::exception& error) {
        what.error = error.what();
    }
}

bool SumTask::waitFor(int milliseconds)
{
    const KT::KTCriticalSection hold(board.mutex);
    if (!finished) {
        board.awaited = this;
        board.done->waitFor(board.mutex, milliseconds);
        board.awaited = nullptr;
    }
    return finished;
}
