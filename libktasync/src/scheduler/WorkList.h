/// Work in a row.
#pragma once

#include <utility>

#include <boost/smart_ptr/intrusive_ptr.hpp>

#include <ktasync/detail/Work.h>

namespace KT {
namespace detail {

using WorkPointer = boost::intrusive_ptr<Work>;

/// A list that needs no memory, of work that is in no other one. It holds a reference to each. For
/// one thread at a time.
class WorkList {
public:
    WorkList() = default;
    WorkList(const WorkList&) = delete;
    WorkList& operator=(const WorkList&) = delete;
    /// There must be none left.
    ~WorkList() = default;

    bool isEmpty() const { return first == nullptr; }
    Work* front() const { return first; }
    Work* back() const { return last; }

    void pushFront(WorkPointer work) { link(work.detach(), nullptr, first); }
    void pushBack(WorkPointer work) { link(work.detach(), last, nullptr); }
    WorkPointer popFront() { return remove(*first); }
    WorkPointer popBack() { return remove(*last); }

    /// One that is in this list.
    WorkPointer remove(Work& work)
    {
        (work.previousInList != nullptr ? work.previousInList->nextInList : first) =
            work.nextInList;
        (work.nextInList != nullptr ? work.nextInList->previousInList : last) = work.previousInList;
        return WorkPointer(&work, false);
    }

    /// Whether `work`, of this list or of another one, is at one of its ends here.
    bool hasAtAnEnd(const Work& work) const { return first == &work || last == &work; }

    void swap(WorkList& other)
    {
        std::swap(first, other.first);
        std::swap(last, other.last);
    }

private:
    void link(Work* work, Work* before, Work* after)
    {
        work->previousInList = before;
        work->nextInList = after;
        (before != nullptr ? before->nextInList : first) = work;
        (after != nullptr ? after->previousInList : last) = work;
    }

    Work* first = nullptr;
    Work* last = nullptr;
};

}  // namespace detail
}  // namespace KT
