/// A random program of several clients at a time, and what must hold however their steps fall.
#pragma once

#include <atomic>
#include <list>
#include <mutex>
#include <string>
#include <vector>

#include "MeetingPoint.h"
#include "Program.h"
#include "QuickTask.h"

/// - No task runs more often than it was queued, or as well as being taken; a refused one never.
/// - Where nobody shut the pool down, each accepted task runs once, or was taken.
/// - One worker begins with each client's tasks in their order.
/// - What libktasync's post accepted, the same; and each callable is destroyed in the end.
/// - The pool's figures are within bounds at all times.
/// - Closed, the pool has no threads, no tasks, no owners but its client, and takes no task.
class ManyClients {
public:
    /// Throws a Finding, once the pool is closed, if something of this doesn't hold. The process
    /// has no other pools meanwhile.
    static void run(const Program& program);

    explicit ManyClients(const Program& program);

private:
    void play();
    void playAlone(int client);
    void act(int client, const Step& step);
    void actOnPool(int client, const Step& step);
    void end(const Step& step);
    void enqueue(int client, const Step& step);
    void enqueueEmpty();
    void enqueueBatch(int client, const Step& step);
    void post(const Step& step);
    void take();
    void look();
    void awaitEnded(const Step& step);

    void drain();
    bool close();
    void checkTasks();
    void checkPosted();
    void checkOrder();
    void found(const std::string& what);
    void foundUnless(bool holds, const std::string& what);

    const Program& program;
    TaskSurroundings around;
    MeetingPoint meetingPoint;
    std::atomic<int> posted{0};
    std::atomic<int> postsRun{0};
    std::atomic<int> postsAlive{0};
    std::mutex findingsMutex;
    std::string findings;
};
