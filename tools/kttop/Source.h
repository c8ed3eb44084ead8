/// Where samples come from.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "ProcessReader.h"
#include "Recording.h"
#include "Sample.h"

class Source {
public:
    Source() = default;
    Source(const Source&) = delete;
    Source& operator=(const Source&) = delete;
    virtual ~Source() = default;

    virtual const ProcessIdentity& process() const = 0;

    /// The next sample, with these details at least; nothing if there are no more, and `ending`
    /// says why. Throws ProcessError and RecordingError.
    virtual std::optional<Sample> next(Details details) = 0;

    /// Reads the details of a worker of the last sample that has none, if they can still be read.
    virtual void readDetails(WorkerReading& worker) = 0;

    /// Seconds from the sample that `next` gave last to the one after it.
    virtual double pause() = 0;

    /// One line about the end.
    virtual std::string ending() const = 0;

    virtual bool isRecorded() const = 0;
};

/// The process as it is now.
class LiveSource : public Source {
public:
    LiveSource(ProcessReader&& processReader, double secondsBetween);

    const ProcessIdentity& process() const override { return reader.process(); }
    std::optional<Sample> next(Details details) override;
    void readDetails(WorkerReading& worker) override { reader.readDetails(worker); }
    double pause() override { return interval; }
    std::string ending() const override { return end; }
    bool isRecorded() const override { return false; }

private:
    ProcessReader reader;
    const double interval;
    std::string end;
};

/// What was recorded, at the pace of then unless another interval is given.
class ReplaySource : public Source {
public:
    ReplaySource(const std::string& path, std::optional<double> secondsBetween);

    const ProcessIdentity& process() const override { return reader.process(); }
    std::optional<Sample> next(Details details) override;
    void readDetails(WorkerReading&) override {}  // all are recorded
    double pause() override;
    std::string ending() const override;
    bool isRecorded() const override { return true; }

private:
    RecordingReader reader;
    const std::optional<double> interval;
    std::optional<Sample> ahead;
    std::int64_t shownNs = 0;
};
