#include "Source.h"

#include <utility>

LiveSource::LiveSource(ProcessReader&& processReader, double secondsBetween)
    : reader(std::move(processReader)), interval(secondsBetween)
{
}

std::optional<Sample> LiveSource::next(Details details)
{
    try {
        return reader.read(details);
    } catch (const ProcessEnded& error) {
        end = error.what();
        return std::nullopt;
    }
}

ReplaySource::ReplaySource(const std::string& path, std::optional<double> secondsBetween)
    : reader(path), interval(secondsBetween), ahead(reader.next())
{
}

std::optional<Sample> ReplaySource::next(Details)
{
    if (!ahead) {
        return std::nullopt;
    }
    Sample sample = std::move(*ahead);
    shownNs = sample.atNs;
    ahead = reader.next();
    return sample;
}

double ReplaySource::pause()
{
    if (interval || !ahead) {
        return interval.value_or(0);
    }
    return static_cast<double>(ahead->atNs - shownNs) / 1e9;
}

std::string ReplaySource::ending() const
{
    return "the recording ends here";
}
