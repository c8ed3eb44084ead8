#include <ktasync/detail/Work.h>

#include "../base/Blocks.h"
#include "WorkQueue.h"

namespace KT {
namespace detail {

Work::~Work() = default;

// NOLINTNEXTLINE(misc-new-delete-overloads)
void* Work::operator new(std::size_t size)
{
    return takeBlock(size);
}

void Work::operator delete(void* block, std::size_t size)
{
    giveBlock(block, size);
}

// It may be moved from one queue to another meanwhile, so once more if it was.
void Work::leaveQueue()
{
    for (WorkQueue* in = queue; in != nullptr && !in->remove(*this); in = queue) {
    }
}

}  // namespace detail
}  // namespace KT
