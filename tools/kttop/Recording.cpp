#include "Recording.h"

#include <cerrno>
#include <cstring>

#include <sys/stat.h>

#include <nlohmann/json.hpp>

#include "Json.h"
#include "Text.h"
#include "ThreadName.h"

namespace {

using json = nlohmann::ordered_json;

const char* const kind = "recording";
const std::uint64_t version = 1;

json asRecorded(const WorkerReading& worker)
{
    json entry = {{"tid", worker.tid},
                  {"start", worker.start},
                  {"state", nameOf(worker.state)},
                  {"kernel", std::string(1, worker.kernelState)},
                  {"cpu_ns", worker.cpuNs},
                  {"voluntary", worker.voluntary},
                  {"involuntary", worker.involuntary}};
    // Left out where there is nothing to say: most of a recording is these entries.
    if (worker.waitNs) {
        entry["wait_ns"] = *worker.waitNs;
    }
    if (!worker.task.empty()) {
        entry["task"] = worker.task;
    }
    if (!worker.pool.empty()) {
        entry["pool"] = worker.pool;
    }
    if (!worker.waitsIn.empty()) {
        entry["wchan"] = worker.waitsIn;
    }
    return entry;
}

// A number is taken as it is or not at all: the library would turn -1 and 1.5 into something.
std::uint64_t countIn(const json& object, const char* key)
{
    const json& value = object.at(key);
    if (!value.is_number_unsigned()) {
        throw std::runtime_error(std::string("'") + key + "' is no count");
    }
    return value.get<std::uint64_t>();
}

int smallCountIn(const json& object, const char* key)
{
    const std::uint64_t count = countIn(object, key);
    if (count > 0x7FFFFFFF) {
        throw std::runtime_error(std::string("'") + key + "' is too large");
    }
    return static_cast<int>(count);
}

std::int64_t timeIn(const json& object, const char* key)
{
    const std::uint64_t time = countIn(object, key);
    if (time > 0x7FFFFFFFFFFFFFFF) {
        throw std::runtime_error(std::string("'") + key + "' is too large");
    }
    return static_cast<std::int64_t>(time);
}

WorkerReading workerFrom(const json& entry)
{
    WorkerReading worker;
    worker.tid = smallCountIn(entry, "tid");
    worker.start = countIn(entry, "start");
    const std::optional<WorkerState> state = stateNamed(entry.at("state").get<std::string>());
    if (!state) {
        throw std::runtime_error("the state is none that a worker has");
    }
    worker.state = *state;
    const auto letter = entry.at("kernel").get<std::string>();
    worker.kernelState = letter.size() == 1 ? letter.front() : '?';
    worker.cpuNs = countIn(entry, "cpu_ns");
    worker.voluntary = countIn(entry, "voluntary");
    worker.involuntary = countIn(entry, "involuntary");
    if (entry.contains("wait_ns")) {
        worker.waitNs = countIn(entry, "wait_ns");
    }
    worker.task = entry.value("task", "");
    worker.pool = entry.value("pool", "");
    worker.waitsIn = entry.value("wchan", "");
    return worker;
}

Sample sampleFrom(const json& object)
{
    Sample sample;
    sample.atNs = timeIn(object, "at_ns");
    sample.wallClockMs = timeIn(object, "clock_ms");
    sample.otherThreads = smallCountIn(object, "others");
    const json& workers = object.at("workers");
    if (!workers.is_array()) {
        throw std::runtime_error("'workers' is no array");
    }
    for (const json& entry : workers) {
        sample.workers.push_back(workerFrom(entry));
    }
    return sample;
}

ProcessIdentity headerFrom(const json& object)
{
    if (!object.is_object() || object.value("kttop", "") != kind) {
        throw std::runtime_error("this is no recording of kttop's");
    }
    if (const std::uint64_t found = countIn(object, "version"); found != version) {
        throw std::runtime_error("it has version " + std::to_string(found) +
                                 " of the format; this program reads version " +
                                 std::to_string(version));
    }
    ProcessIdentity process;
    process.pid = smallCountIn(object, "pid");
    process.start = countIn(object, "start");
    process.name = object.at("name").get<std::string>();
    return process;
}

}  // namespace

RecordingWriter::RecordingWriter(const std::string& file, const ProcessIdentity& process,
                                 double interval)
    : path(file), out(file, std::ios::binary | std::ios::trunc)
{
    if (!out) {
        throw RecordingError(inAscii(path) + " can't be written: " + std::strerror(errno));
    }
    writeLine(asLine({{"kttop", kind},
                      {"version", version},
                      {"pid", process.pid},
                      {"start", process.start},
                      {"name", process.name},
                      {"interval_s", interval}}));
}

void RecordingWriter::write(const Sample& sample)
{
    json workers = json::array();
    for (const WorkerReading& worker : sample.workers) {
        workers.push_back(asRecorded(worker));
    }
    writeLine(asLine({{"at_ns", sample.atNs},
                      {"clock_ms", sample.wallClockMs},
                      {"others", sample.otherThreads},
                      {"workers", std::move(workers)}}));
}

void RecordingWriter::writeLine(const std::string& line)
{
    errno = 0;
    if (!(out << line << '\n' << std::flush)) {
        throw RecordingError(inAscii(path) + " can't be written on: " + std::strerror(errno));
    }
}

RecordingReader::RecordingReader(const std::string& file) : path(file), in(file, std::ios::binary)
{
    struct stat status {};
    if (!in) {
        throw RecordingError(inAscii(path) + " can't be read: " + std::strerror(errno));
    }
    // It opens like a file, and has no line.
    if (stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode)) {
        throw RecordingError(inAscii(path) + " can't be read: " + std::strerror(EISDIR));
    }
    if (!readLine()) {
        line = 1;
        fail("the file is empty");
    }
    parsed([this](const json& header) { identity = headerFrom(header); });
}

std::optional<Sample> RecordingReader::next()
{
    if (!readLine()) {
        return std::nullopt;
    }
    Sample sample;
    parsed([&sample](const json& object) { sample = sampleFrom(object); });
    if (sample.atNs < lastNs) {
        fail("it is older than the sample before it");
    }
    lastNs = sample.atNs;
    return sample;
}

bool RecordingReader::readLine()
{
    if (!std::getline(in, text)) {
        return false;
    }
    ++line;
    if (in.eof()) {
        fail("the line is cut off");
    }
    return true;
}

template <typename Read>
void RecordingReader::parsed(Read read)
{
    try {
        read(json::parse(text));
    } catch (const json::parse_error& error) {
        fail("this is no JSON, from byte " + std::to_string(error.byte) + " on");
    } catch (const json::exception& error) {
        // Behind the library's own number in brackets.
        const std::string what = error.what();
        fail(what.substr(what.find("] ") + 2));
    } catch (const RecordingError&) {
        throw;
    } catch (const std::runtime_error& error) {
        fail(error.what());
    }
}

void RecordingReader::fail(const std::string& what) const
{
    throw RecordingError(inAscii(path) + ":" + std::to_string(line) + ": " + inAscii(what));
}
