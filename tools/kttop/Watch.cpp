#include "Watch.h"

#include "ExitStatus.h"
#include "PageDetails.h"

namespace {

using Clock = std::chrono::steady_clock;

Clock::duration clockDuration(double seconds)
{
    return std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
}

/// A terminal that is gone has ncurses find keys for ever.
const int mostKeysAtOnce = 256;

}  // namespace

Watch::Watch(Source& samples, RecordingWriter* writer, bool onTerminal, bool hasUtf8)
    : source(samples), recorder(writer), utf8(hasUtf8), due(Clock::now())
{
    scene.process = source.process();
    scene.recorded = source.isRecorded();
    scene.recording = recorder != nullptr;
    takeSample();  // what is wrong is said before the screen comes up
    if (onTerminal) {
        screen = std::make_unique<Screen>();
    }
}

int Watch::go()
{
    Event event = Event::time;
    while (event != Event::ending && !controls.wantsToQuit() && (screen || !ended)) {
        draw();
        // With nothing more to come, there are only keys to wait for.
        event = waiting.until(ended ? Clock::now() + std::chrono::hours(1) : due, bool(screen));
        handleKeys();
        if (!ended && Clock::now() >= due) {
            takeSample();
        }
    }
    screen.reset();
    return ended && !source.isRecorded() ? exitProcessEnded : exitDone;
}

void Watch::takeSample()
{
    // A replay that stands still waits where it is; a process goes on.
    if (controls.state().paused && source.isRecorded()) {
        due = Clock::now() + clockDuration(1);
        return;
    }
    const bool needsAll =
        !screen || recorder != nullptr || isDetail(controls.state().sorting.column);
    const std::optional<Sample> sample = source.next(needsAll ? Details::all : Details::known);
    if (!sample) {
        finish();
        return;
    }
    history.add(*sample);
    if (screen) {
        readDetailsOfPage(source, history, controls.state(), screen->size());
    }
    if (recorder != nullptr) {
        recorder->write(*sample);
    }
    refreshScene();
    // From the time that was meant, so that delays don't add up; but those missed are not made up
    // for.
    due = std::max(due + clockDuration(source.pause()), Clock::now());
}

void Watch::finish()
{
    ended = true;
    scene.notice = source.ending();
    if (!source.isRecorded()) {
        end = scene.notice;
    }
}

void Watch::refreshScene()
{
    if (!controls.state().paused) {
        scene.snapshot = history.snapshot();
    }
}

void Watch::draw()
{
    if (screen) {
        const Page page = buildPage(scene, controls.state(), screen->size(), utf8);
        controls.shown(page);
        screen->draw(page);
    }
}

void Watch::handleKeys()
{
    for (int i = 0; screen && i < mostKeysAtOnce; ++i) {
        const std::optional<Key> key = screen->key();
        if (!key) {
            return;
        }
        const bool wasPaused = controls.state().paused;
        controls.press(*key);
        if (wasPaused && !controls.state().paused) {
            refreshScene();
            due = source.isRecorded() ? Clock::now() : due;
        }
        // Each key scrolls from where the one before it came to, however many come at once.
        controls.shown(buildPage(scene, controls.state(), screen->size(), utf8));
    }
}
