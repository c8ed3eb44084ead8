#include <filesystem>
#include <fstream>
#include <functional>
#include <ostream>
#include <sstream>
#include <string>

#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "Json.h"
#include "Recording.h"
#include "Source.h"

namespace {

const std::string header =
    R"({"kttop":"recording","version":1,"pid":10,"start":100,"name":"busy","interval_s":1.0})"
    "\n";
const std::string entry =
    R"({"tid":11,"start":1,"state":"running","kernel":"R","cpu_ns":1,"voluntary":2,"involuntary":3})";

std::string sampleLine(const std::string& workers, const std::string& at = "5")
{
    return R"({"at_ns":)" + at + R"(,"clock_ms":6,"others":1,"workers":)" + workers + "}\n";
}

class KttopRecording : public testing::Test {
protected:
    KttopRecording()
        : file(std::filesystem::temp_directory_path() /
               ("kttop-recording." + std::to_string(getpid())))
    {
    }
    ~KttopRecording() override { std::filesystem::remove(file); }

    std::string written() const
    {
        std::ostringstream text;
        text << std::ifstream(file, std::ios::binary).rdbuf();
        return text.str();
    }

    /// What reading all of it throws, without the file's name.
    std::string complaint(const std::string& text) const
    {
        std::ofstream(file, std::ios::binary) << text;
        try {
            RecordingReader reader(file);
            while (reader.next()) {
            }
        } catch (const RecordingError& error) {
            const std::string what = error.what();
            EXPECT_EQ(what.compare(0, file.size(), file), 0);
            return what.substr(file.size());
        }
        return "";
    }

    const std::string file;
};

WorkerReading reading()
{
    WorkerReading worker;
    worker.tid = 11;
    worker.start = 123;
    worker.state = WorkerState::running;
    worker.task = "a \"b\"\x1b";
    worker.kernelState = 'S';
    worker.cpuNs = 18446744073709551615U;
    worker.waitNs = 7;
    worker.voluntary = 8;
    worker.involuntary = 9;
    worker.waitsIn = "futex_wait_queue";
    worker.pool = "ren\x1b\"der";
    return worker;
}

TEST_F(KttopRecording, ComesBackAsItWas)
{
    Sample first;
    first.atNs = 1000;
    first.wallClockMs = 2000;
    first.otherThreads = 3;
    first.workers = {reading(), reading()};
    first.workers[1].state = WorkerState::sleeping;
    first.workers[1].task = "";
    first.workers[1].waitNs.reset();
    first.workers[1].waitsIn = "";
    first.workers[1].pool = "";
    Sample next;
    next.atNs = 1001;
    {
        RecordingWriter writer(file, {10, 100, "bu\nsy"}, 0.5);
        writer.write(first);
        writer.write(next);
    }
    RecordingReader reader(file);
    EXPECT_EQ(reader.process().pid, 10);
    EXPECT_EQ(reader.process().start, 100U);
    EXPECT_EQ(reader.process().name, "bu\nsy");
    const auto sample = reader.next();
    ASSERT_TRUE(sample);
    EXPECT_EQ(sample->atNs, 1000);
    EXPECT_EQ(sample->wallClockMs, 2000);
    EXPECT_EQ(sample->otherThreads, 3);
    ASSERT_EQ(sample->workers.size(), 2U);
    const WorkerReading& worker = sample->workers[0];
    EXPECT_EQ(worker.tid, 11);
    EXPECT_EQ(worker.start, 123U);
    EXPECT_EQ(worker.state, WorkerState::running);
    EXPECT_EQ(worker.task, "a \"b\"\x1b");
    EXPECT_EQ(worker.kernelState, 'S');
    EXPECT_EQ(worker.cpuNs, 18446744073709551615U);
    EXPECT_EQ(worker.waitNs, 7U);
    EXPECT_EQ(worker.voluntary, 8U);
    EXPECT_EQ(worker.involuntary, 9U);
    EXPECT_EQ(worker.waitsIn, "futex_wait_queue");
    EXPECT_EQ(worker.pool, "ren\x1b\"der");
    EXPECT_EQ(sample->workers[1].pool, "");
    EXPECT_EQ(sample->workers[1].state, WorkerState::sleeping);
    EXPECT_EQ(sample->workers[1].task, "");
    EXPECT_FALSE(sample->workers[1].waitNs);
    EXPECT_EQ(sample->workers[1].waitsIn, "");
    EXPECT_EQ(reader.next()->atNs, 1001);
    EXPECT_FALSE(reader.next());
}

TEST_F(KttopRecording, IsAsciiWhateverTheNames)
{
    Sample sample;
    sample.workers = {reading()};
    sample.workers[0].task = "\xff\x1b\x7fü";
    RecordingWriter(file, {10, 100, "\xc3"}, 1).write(sample);
    for (const char byte : written()) {
        EXPECT_TRUE((byte >= ' ' && byte <= '~') || byte == '\n') << int(byte);
    }
    RecordingReader reader(file);
    EXPECT_EQ(reader.process().name, "\uFFFD");
    EXPECT_EQ(reader.next()->workers[0].task, "\uFFFD\x1b\x7fü");
}

struct Broken {
    std::string text;
    const char* complaint;
};

void PrintTo(const Broken& broken, std::ostream* out)
{
    *out << broken.complaint;
}

class KttopBrokenRecording : public KttopRecording, public testing::WithParamInterface<Broken> {};

TEST_P(KttopBrokenRecording, IsNamedWithItsLine)
{
    EXPECT_EQ(complaint(GetParam().text), GetParam().complaint);
}

std::string without(std::string text, const std::string& part, const std::string& other = "")
{
    return text.replace(text.find(part), part.size(), other);
}

INSTANTIATE_TEST_SUITE_P(
    Files, KttopBrokenRecording,
    testing::Values(
        Broken{"", ":1: the file is empty"}, Broken{"\n", ":1: this is no JSON, from byte 1 on"},
        Broken{"\x1b[2J\n", ":1: this is no JSON, from byte 1 on"},
        Broken{"[1]\n", ":1: this is no recording of kttop's"},
        Broken{"{}\n", ":1: this is no recording of kttop's"},
        Broken{R"({"kttop":"sample","version":1})"
               "\n",
               ":1: this is no recording of kttop's"},
        Broken{without(header, "\"version\":1", "\"version\":2"),
               ":1: it has version 2 of the format; this program reads version 1"},
        Broken{without(header, "\"pid\":10,"), ":1: key 'pid' not found"},
        Broken{without(header, "\"pid\":10", "\"pid\":-1"), ":1: 'pid' is no count"},
        Broken{without(header, "\"busy\"", "7"), ":1: type must be string, but is number"},
        Broken{header.substr(0, header.size() - 1), ":1: the line is cut off"},
        Broken{header + sampleLine("[]") + sampleLine("[]").substr(0, 20),
               ":3: the line is cut off"},
        Broken{header + sampleLine("[]") + "nonsense\n", ":3: this is no JSON, from byte 2 on"},
        Broken{header + "\n", ":2: this is no JSON, from byte 1 on"},
        Broken{header + "[]\n", ":2: cannot use at() with array"},
        Broken{header + sampleLine("{}"), ":2: 'workers' is no array"},
        Broken{header + sampleLine("[1]"), ":2: cannot use at() with number"},
        Broken{header + sampleLine("[]", "-5"), ":2: 'at_ns' is no count"},
        Broken{header + sampleLine("[]", "1.5"), ":2: 'at_ns' is no count"},
        Broken{header + sampleLine("[]", "1e999"), ":2: number overflow parsing '1e999'"},
        Broken{header + sampleLine("[]", "9223372036854775808"), ":2: 'at_ns' is too large"},
        Broken{header + sampleLine("[]", "9") + sampleLine("[]", "8"),
               ":3: it is older than the sample before it"},
        Broken{header + sampleLine("[" + without(entry, "running", "walking") + "]"),
               ":2: the state is none that a worker has"},
        Broken{header + sampleLine("[" + without(entry, "{", "{\"pool\":7,") + "]"),
               ":2: type must be string, but is number"},
        Broken{header + sampleLine("[" + without(entry, "11", "2147483648") + "]"),
               ":2: 'tid' is too large"}));

TEST_F(KttopRecording, PassesOverFieldsThatItDoesNotKnow)
{
    EXPECT_EQ(complaint(without(header, "{", "{\"more\":1,") + sampleLine("[" + entry + "]")), "");
}

TEST_F(KttopRecording, MayHaveNoPools)
{
    std::ofstream(file) << header << sampleLine("[" + entry + "]");
    RecordingReader reader(file);
    EXPECT_EQ(reader.next()->workers.at(0).pool, "");
}

TEST_F(KttopRecording, SaysWhyAFileCantBeUsed)
{
    const auto message = [](const std::function<void()>& action) -> std::string {
        try {
            action();
        } catch (const RecordingError& error) {
            return error.what();
        }
        return "";
    };
    EXPECT_EQ(message([] { RecordingReader("/none/x"); }),
              "/none/x can't be read: No such file or directory");
    EXPECT_EQ(message([] { RecordingReader("/proc"); }), "/proc can't be read: Is a directory");
    EXPECT_EQ(message([] { RecordingWriter("/none/x", {}, 1); }),
              "/none/x can't be written: No such file or directory");
    EXPECT_EQ(message([] { RecordingWriter("/dev/full", {}, 1); }),
              "/dev/full can't be written on: No space left on device");
}

TEST_F(KttopRecording, IsPlayedAtItsPaceOrAnother)
{
    std::ofstream(file) << header << sampleLine("[]", "1000000000")
                        << sampleLine("[]", "3500000000");
    ReplaySource asRecorded(file, std::nullopt);
    EXPECT_TRUE(asRecorded.isRecorded());
    EXPECT_TRUE(asRecorded.next(Details::all));
    EXPECT_DOUBLE_EQ(asRecorded.pause(), 2.5);
    EXPECT_TRUE(asRecorded.next(Details::all));
    EXPECT_FALSE(asRecorded.next(Details::all));
    EXPECT_EQ(asRecorded.ending(), "the recording ends here");
    ReplaySource quick(file, 0.25);
    EXPECT_TRUE(quick.next(Details::all));
    EXPECT_DOUBLE_EQ(quick.pause(), 0.25);
}

TEST(KttopJson, IsValidWhateverTheNames)
{
    Snapshot snapshot;
    Worker worker;
    worker.reading = reading();
    worker.reading.task = "\xff\x1b\"\\\n";
    worker.hasRates = true;
    worker.cpuPercent = 12.34567;
    snapshot.workers = {worker, worker};
    snapshot.workers[1].hasRates = false;
    snapshot.workers[1].reading.state = WorkerState::sleeping;
    snapshot.workers[1].reading.pool = "";
    snapshot.counts = {2, 1, 1, 0, 0, 4};
    snapshot.tasks = {{"\xff\x1b\"\\\n", 3}};
    snapshot.taskLooks = 4;
    const std::string text = asJson({10, 100, "b\xffy"}, snapshot);
    EXPECT_EQ(text.find_first_of("\x1b\n\xff"), std::string::npos);
    const auto json = nlohmann::json::parse(text);
    EXPECT_EQ(json["kttop"], "sample");
    EXPECT_EQ(json["pid"], 10);
    EXPECT_EQ(json["name"], "b\uFFFDy");
    EXPECT_EQ(json["counts"]["other_threads"], 4);
    EXPECT_EQ(json["workers"][0]["task"], "\uFFFD\x1b\"\\\n");
    EXPECT_EQ(json["workers"][0]["cpu_percent"], 12.346);
    EXPECT_EQ(json["workers"][0]["waits_in"], "futex_wait_queue");
    EXPECT_EQ(json["workers"][0]["pool"], "ren\x1b\"der");
    EXPECT_TRUE(json["workers"][1]["pool"].is_null());
    EXPECT_TRUE(json["workers"][1]["task"].is_null());
    EXPECT_TRUE(json["workers"][1]["cpu_percent"].is_null());
    EXPECT_EQ(json["tasks"][0]["percent"], 75);
}

}  // namespace
