/// Named conditions: tasks wait for an event that they know by its name. A trigger wakes those who
/// wait at that moment and is not remembered, so what it tells of is kept beside it.
///
/// Prints:
///     cache started with settings
///     mailer started with settings
///     search started with settings
#include <atomic>
#include <cstdio>
#include <string>
#include <vector>

#include <ktasync/ktasync.h>
#include <ktthread/ktthread.h>

class Settings {
public:
    Settings() { events.addCondition("settings"); }  // all names before threads use them

    void waitForThem()
    {
        while (!areThere) {
            events.waitForCondition("settings");  // may also return for no reason
        }
    }

    void read() { areThere = true; }
    void tellWhoWaits() { events.triggerCondition("settings"); }

private:
    KT::KTConditionManager events;
    std::atomic<bool> areThere{false};
};

int main()
{
    Settings settings;
    KT::KTPoolOptions options;
    options.threads = 3;  // each task below blocks one
    const KT::KTScopedPool pool(options);

    std::vector<KT::KTFuture<std::string>> services;
    for (const char* name : {"cache", "mailer", "search"}) {
        services.push_back(KT::submit(pool, name, [&settings, name] {
            settings.waitForThem();
            return std::string(name) + " started with settings";
        }));
    }
    settings.read();
    for (KT::KTFuture<std::string>& service : services) {
        // Again and again: a trigger that comes just before a task falls asleep is lost on it.
        do {
            settings.tellWhoWaits();
        } while (!service.waitFor(10));
        std::printf("%s\n", service.get().c_str());
    }
}
