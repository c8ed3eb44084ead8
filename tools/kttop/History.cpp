#include "History.h"

#include <algorithm>

namespace {

const double nsPerSecond = 1e9;

/// Bounds the memory where samples are taken in quick succession.
const std::size_t mostMoments = 3000;

double seconds(std::int64_t fromNs, std::int64_t toNs)
{
    return static_cast<double>(toNs - fromNs) / nsPerSecond;
}

/// What a count grew by; a count that fell is another one.
double growth(std::uint64_t before, std::uint64_t after)
{
    return after > before ? static_cast<double>(after - before) : 0;
}

Counts countIn(const Sample& sample)
{
    Counts counts;
    counts.workers = static_cast<int>(sample.workers.size());
    counts.otherThreads = sample.otherThreads;
    for (const WorkerReading& worker : sample.workers) {
        switch (worker.state) {
            case WorkerState::running:
            case WorkerState::finished: ++counts.running; break;
            case WorkerState::sleeping: ++counts.sleeping; break;
            case WorkerState::idle: ++counts.idle; break;
            case WorkerState::fresh: ++counts.fresh; break;
        }
    }
    return counts;
}

/// Who sleeps gets no processor, and doesn't give one away a second time, without having been
/// awake.
bool sleptOn(const WorkerReading& before, const WorkerReading& after)
{
    return after.slices ? before.slices == after.slices : before.voluntary == after.voluntary;
}

/// Whether the worker can have been in one state from one reading to the next.
bool staysIn(const WorkerReading& before, const WorkerReading& after)
{
    return before.state == after.state && before.task == after.task &&
           (after.state != WorkerState::sleeping || sleptOn(before, after));
}

void setRates(Worker& worker, const WorkerReading& before, double between)
{
    const WorkerReading& after = worker.reading;
    worker.hasRates = true;
    worker.cpuPercent = 100 * growth(before.cpuNs, after.cpuNs) / nsPerSecond / between;
    worker.waitPercent =
        100 * growth(before.waitNs.value_or(0), after.waitNs.value_or(0)) / nsPerSecond / between;
}

}  // namespace

void History::add(const Sample& sample)
{
    now.secondsBetween = samples > 0 ? seconds(now.atNs, sample.atNs) : 0;
    now.atNs = sample.atNs;
    now.wallClockMs = sample.wallClockMs;
    now.counts = countIn(sample);
    now.workers.clear();
    now.cpuPercent = 0;
    for (const WorkerReading& reading : sample.workers) {
        now.workers.push_back(follow(reading, sample));
        now.cpuPercent += now.workers.back().cpuPercent;
    }
    forgetEnded();
    now.moments.push_back({samples++, sample.atNs, now.counts});
    tally.add(sample.workers);
    forgetOld(sample.atNs);
}

Worker History::follow(const WorkerReading& reading, const Sample& sample)
{
    Worker worker;
    worker.reading = reading;
    const auto [found, isNew] = tracks.try_emplace(reading.tid);
    Track& track = found->second;
    if (isNew || track.last.start != reading.start) {
        track = Track();
        track.sinceNs = sample.atNs;
        track.sinceBefore = samples == 0;  // who came later began after the last look
    } else {
        if (now.secondsBetween > 0) {
            setRates(worker, track.last, now.secondsBetween);
        }
        if (!staysIn(track.last, reading)) {
            track.sinceNs = sample.atNs;
            track.sinceBefore = false;
        }
    }
    followSwitches(track, worker);
    track.last = reading;
    track.seen = true;
    worker.stateSeconds = seconds(track.sinceNs, sample.atNs);
    worker.sinceBefore = track.sinceBefore;
    return worker;
}

void History::followSwitches(Track& track, Worker& worker) const
{
    if (!worker.reading.hasDetails) {
        return;
    }
    if (track.detailsNs) {
        const double between = seconds(*track.detailsNs, now.atNs);
        worker.hasSwitchRates =
            between > 0 && between <= std::max(longestRateSeconds, now.secondsBetween);
        if (worker.hasSwitchRates) {
            worker.voluntaryRate = growth(track.voluntary, worker.reading.voluntary) / between;
            worker.involuntaryRate =
                growth(track.involuntary, worker.reading.involuntary) / between;
        }
    }
    track.detailsNs = now.atNs;
    track.voluntary = worker.reading.voluntary;
    track.involuntary = worker.reading.involuntary;
}

void History::addDetails(const WorkerReading& reading)
{
    const auto worker =
        std::find_if(now.workers.begin(), now.workers.end(),
                     [&](const Worker& seen) { return seen.reading.tid == reading.tid; });
    if (worker != now.workers.end()) {
        worker->reading = reading;
        followSwitches(tracks[reading.tid], *worker);
    }
}

void History::forgetEnded()
{
    for (auto track = tracks.begin(); track != tracks.end();) {
        if (track->second.seen) {
            track->second.seen = false;
            ++track;
        } else {
            track = tracks.erase(track);
        }
    }
}

void History::forgetOld(std::int64_t nowNs)
{
    while (now.moments.size() > mostMoments ||
           seconds(now.moments.front().atNs, nowNs) > historySeconds) {
        now.moments.pop_front();
        tally.dropOldest();
    }
}

Snapshot History::snapshot() const
{
    Snapshot copy = now;
    copy.tasks = tally.mostOften();
    copy.taskLooks = tally.looks();
    return copy;
}
