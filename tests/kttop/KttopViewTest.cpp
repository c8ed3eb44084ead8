#include <clocale>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Controls.h"
#include "Help.h"
#include "Text.h"
#include "View.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

class KttopText : public testing::Test {
protected:
    void SetUp() override { ASSERT_NE(std::setlocale(LC_CTYPE, "C.utf8"), nullptr); }
};

TEST_F(KttopText, ShowsWhatATerminalMayShow)
{
    EXPECT_EQ(shown("plain (text) ~", true), "plain (text) ~");
    EXPECT_EQ(shown("Prüf 日本", true), "Prüf 日本");
    EXPECT_EQ(shown("Prüf 日本", false), "Pr?f ??");
}

TEST_F(KttopText, ShowsNothingThatCouldDriveATerminal)
{
    EXPECT_EQ(shown("\x1b[31m\x07\n\t\x7f", true), "?[31m????");
    EXPECT_EQ(shown(std::string("a\0b", 3), true), "a?b");
    EXPECT_EQ(shown("\u009b31m", true), "?31m");  // another way to begin a sequence
    const std::string rightToLeft = {'\xe2', '\x80', '\xae'};
    const std::string noWidth = {'\xe2', '\x80', '\x8b'};
    EXPECT_EQ(shown(rightToLeft + "b" + noWidth, true), "?b?");
    EXPECT_EQ(shown("e\u0301", true), "e?");  // an accent that the cut may leave behind
}

TEST_F(KttopText, ShowsBytesThatAreNoUtf8)
{
    EXPECT_EQ(shown("\xff\xfe", true), "??");
    EXPECT_EQ(shown("Pr\xc3", true), "Pr?");   // cut by the kernel
    EXPECT_EQ(shown("\xc0\xaf", true), "??");  // a slash, longer than need be
    EXPECT_EQ(shown("\xe0\x80\xaf", true), "???");
    EXPECT_EQ(shown("\xed\xa0\x80", true), "???");       // half of a pair
    EXPECT_EQ(shown("\xf4\x90\x80\x80", true), "????");  // beyond the last
    EXPECT_EQ(shown("\xe6\x97x", true), "??x");
}

TEST_F(KttopText, CutsAndPadsByColumns)
{
    EXPECT_EQ(columnsOf("ü日"), 3U);
    EXPECT_EQ(cutTo("ü日x", 2), "ü");
    EXPECT_EQ(padded("ü日x", 2), "ü ");
    EXPECT_EQ(padded("ab", 4), "ab  ");
    EXPECT_EQ(paddedLeft("ab", 4), "  ab");
    EXPECT_EQ(paddedLeft("abcde", 4), "abcd");
    EXPECT_EQ(withoutLast("aü"), "a");
    EXPECT_EQ(withoutLast(""), "");
}

TEST_F(KttopText, HasShortNumbers)
{
    EXPECT_EQ(asDuration(0.04), "0.0s");
    EXPECT_EQ(asDuration(9.94), "9.9s");
    EXPECT_EQ(asDuration(9.96), "9s");
    EXPECT_EQ(asDuration(59.9), "59s");
    EXPECT_EQ(asDuration(60), "1m00s");
    EXPECT_EQ(asDuration(3599), "59m59s");
    EXPECT_EQ(asDuration(7265), "2h01m");
    EXPECT_EQ(asDuration(90000), "1d01h");
    EXPECT_EQ(asCpuTime(0), "0:00.00");
    EXPECT_EQ(asCpuTime(9999999), "0:00.00");
    EXPECT_EQ(asCpuTime(61050000000), "1:01.05");
    EXPECT_EQ(asCpuTime(59999999999999), "999:59.99");
    EXPECT_EQ(asCpuTime(60000000000000), "1000:00");
    EXPECT_EQ(asCpuTime(59999999000000000), "999999:59");
    EXPECT_EQ(asCpuTime(60000000000000000), "16666h");
    EXPECT_EQ(asCpuTime(18446744073709551615U), "5124095h");
    EXPECT_EQ(asPercent(99.94), "99.9");
    EXPECT_EQ(asPercent(1234.5), "1234");
    EXPECT_EQ(asRate(0.04), "0");
    EXPECT_EQ(asRate(0.5), "0.5");
    EXPECT_EQ(asRate(12345.6), "12346");
    EXPECT_EQ(asRate(123456), "123k");
    EXPECT_EQ(asRate(12345678), "12M");
}

class KttopView : public KttopText {
protected:
    KttopView()
    {
        setenv("TZ", "UTC", 1);
        scene.process.pid = 4711;
        scene.process.name = "busy";
        scene.snapshot.wallClockMs = 3723000;
    }

    Worker& add(int tid, WorkerState seen, const std::string& task = "", double cpu = 0)
    {
        Worker worker;
        worker.reading.tid = tid;
        worker.reading.state = seen;
        worker.reading.task = task;
        worker.reading.kernelState = 'S';
        worker.reading.waitNs = 0;
        worker.reading.waitsIn = "futex_wait_queue";
        worker.hasRates = true;
        worker.hasSwitchRates = true;
        worker.cpuPercent = cpu;
        ++scene.snapshot.counts.workers;
        scene.snapshot.workers.push_back(worker);
        return scene.snapshot.workers.back();
    }

    std::vector<std::string> page(std::size_t columns, std::size_t lines)
    {
        const Page built = buildPage(scene, state, {columns, lines}, true);
        std::vector<std::string> texts;
        for (const Line& line : built.lines) {
            texts.push_back(textOf(line));
        }
        return texts;
    }

    std::vector<Column> columns(std::size_t width) const
    {
        return layoutFor(scene.snapshot, width).columns;
    }

    std::vector<int> order(Column column, bool reverse = false, const std::string& filter = "")
    {
        std::vector<int> tids;
        for (const Worker* const worker :
             selectWorkers(scene.snapshot, filter, Sorting{column, reverse})) {
            tids.push_back(worker->reading.tid);
        }
        return tids;
    }

    Scene scene;
    ViewState state;
};

TEST_F(KttopView, AlignsItsColumns)
{
    Worker& worker = add(123, WorkerState::running, "image-r", 87.56);
    worker.stateSeconds = 64;
    worker.sinceBefore = true;
    worker.waitPercent = 3;
    worker.reading.cpuNs = 3723049999999;
    worker.voluntaryRate = 1234;
    worker.involuntaryRate = 0.5;
    add(4194304, WorkerState::sleeping).stateSeconds = 0.25;
    const std::vector<std::string> lines = page(80, 24);
    EXPECT_EQ(lines[5],
              "    TID STATE    TASK     CPU% WAIT%     TIME+   SINCE  VOL/S INV/S S WAITS IN  ");
    EXPECT_EQ(lines[6],
              "    123 running  image-r  87.6   3.0  62:03.04   1m04s+  1234   0.5 S futex_wait");
    EXPECT_EQ(lines[7],
              "4194304 sleeping           0.0   0.0   0:00.00    0.2s      0     0 S futex_wait");
}

TEST_F(KttopView, HasADashForWhatIsNotKnown)
{
    Worker& first = add(1, WorkerState::idle);
    first.hasRates = false;
    first.hasSwitchRates = false;
    first.reading.waitsIn = "";
    EXPECT_EQ(page(80, 24)[6],
              "      1 idle                 -     -   0:00.00    0.0s      -     - S -         ");
}

TEST_F(KttopView, HasADashForDetailsThatWereNotRead)
{
    Worker& seen = add(1, WorkerState::running, "load", 5);
    seen.hasSwitchRates = false;
    seen.reading.hasDetails = false;
    EXPECT_EQ(page(80, 24)[6],
              "      1 running  load      5.0   0.0   0:00.00    0.0s      -     - - -         ");
}

TEST_F(KttopView, HasTheSameRowsAsItsPage)
{
    for (int tid = 1; tid <= 20; ++tid) {
        add(tid, WorkerState::running, "load");
    }
    state.first = 3;
    for (std::size_t lines = 1; lines < 40; ++lines) {
        const Rows rows = rowsFor(scene.snapshot, state, {80, lines});
        std::vector<std::string> texts = page(80, lines);
        std::vector<int> tids;
        for (const std::string& text : texts) {
            if (text.find(" running  load ") != std::string::npos) {
                tids.push_back(std::stoi(text));
            }
        }
        ASSERT_EQ(rows.workers.size(), 20U);
        ASSERT_EQ(tids.size(), rows.visible) << lines;
        for (std::size_t i = 0; i < tids.size(); ++i) {
            EXPECT_EQ(tids[i], rows.workers[rows.first + i]->reading.tid) << lines;
        }
    }
}

// Whatever the size: no line is wider, and there are as many as the screen has.
TEST_F(KttopView, FitsEverySize)
{
    for (int tid = 1000000; tid < 1000050; ++tid) {
        add(tid, WorkerState::running, tid % 2 == 0 ? "日本" : "\x1b[31m\xff", 12345678)
            .stateSeconds = 1e12;
    }
    scene.snapshot.workers[7].reading.pool = "日本日本日\x1b本日本日本日本日本日本日本日本日本";
    scene.process.name = "ünï日本 name";
    scene.snapshot.tasks = {{"日本", 10}, {"", 5}, {"\x1b", 1}};
    scene.snapshot.taskLooks = 16;
    scene.snapshot.moments.resize(500);
    for (const bool help : {false, true}) {
        for (const std::string notice : {"", "the process has ended"}) {
            state.help = help;
            scene.notice = notice;
            for (std::size_t columns = 1; columns < 130; ++columns) {
                for (std::size_t lines = 1; lines < 30; ++lines) {
                    const std::vector<std::string> texts = page(columns, lines);
                    ASSERT_EQ(texts.size(), lines) << columns;
                    for (const std::string& text : texts) {
                        ASSERT_LE(columnsOf(text), columns) << text;
                        ASSERT_EQ(shown(text, true), text);
                    }
                }
            }
        }
    }
}

TEST_F(KttopView, LeavesColumnsOutWhereThereIsNoRoom)
{
    EXPECT_THAT(columns(40),
                ElementsAre(Column::tid, Column::state, Column::task, Column::cpu, Column::since));
    EXPECT_EQ(columns(80).size(), static_cast<std::size_t>(columnCount) - 1);
    EXPECT_THAT(columns(1), ElementsAre(Column::tid));
    add(1, WorkerState::running, "a").reading.pool = "io";
    EXPECT_THAT(columns(40),
                ElementsAre(Column::tid, Column::state, Column::task, Column::pool, Column::cpu));
    EXPECT_EQ(columns(85).size(), static_cast<std::size_t>(columnCount));
}

TEST_F(KttopView, HasAColumnForNamesOfPools)
{
    add(1, WorkerState::running, "load").reading.pool = "render\x1b";
    add(2, WorkerState::sleeping);
    EXPECT_EQ(page(120, 24)[5].substr(0, 40), "    TID STATE    TASK    POOL     CPU% W");
    EXPECT_EQ(page(120, 24)[6].substr(0, 40), "      1 running  load    render?   0.0  ");
    EXPECT_EQ(page(120, 24)[7].substr(0, 40), "      2 sleeping         -         0.0  ");
}

TEST_F(KttopView, CutsNamesOfPoolsWhereThereIsNoRoom)
{
    const std::string longest = "a-name-of-thirty-one-characters";
    add(1, WorkerState::running, "load").reading.pool = longest + "-and-more";
    EXPECT_THAT(page(120, 24)[6], HasSubstr(" load    " + longest + "   0.0 "));
    EXPECT_THAT(page(80, 24)[6], HasSubstr(" load    a-name-of-thirty   0.0 "));
    EXPECT_THAT(asText(scene, true), HasSubstr(" load    " + longest + "   0.0 "));
    EXPECT_THAT(asText(scene, true), HasSubstr(" futex_wait_queue\n"));
}

TEST_F(KttopView, LeavesLinesOutWhereThereIsNoRoom)
{
    add(1, WorkerState::running, "a");
    EXPECT_THAT(page(80, 10)[2], StartsWith("running "));
    EXPECT_THAT(page(80, 9)[2], StartsWith("last "));
    EXPECT_THAT(page(80, 7)[2], StartsWith("    TID"));
    EXPECT_THAT(page(80, 4)[1], StartsWith("    TID"));
    EXPECT_THAT(page(80, 3)[0], StartsWith("    TID"));
    EXPECT_THAT(page(80, 3)[1], StartsWith("      1 running"));
}

TEST_F(KttopView, SumsUpOnTop)
{
    scene.snapshot.counts = {12, 4, 5, 2, 1, 3};
    scene.snapshot.cpuPercent = 197.3;
    scene.snapshot.tasks = {{"image-r", 300}, {"load", 99}, {"", 1}};
    scene.snapshot.taskLooks = 400;
    for (std::int64_t i = 0; i < 3; ++i) {
        scene.snapshot.moments.push_back({static_cast<std::uint64_t>(i), i * 1000000000, {}});
        scene.snapshot.moments.back().counts = {12, static_cast<int>(6 * i), 0, 0, 0, 0};
    }
    const std::vector<std::string> lines = page(80, 24);
    EXPECT_EQ(lines[0], "kttop: busy, pid 4711" + std::string(51, ' ') + "01:02:03");
    EXPECT_EQ(lines[1],
              "12 workers: 4 running, 5 sleeping, 2 idle, 1 new; 3 other threads, CPU 197.3%");
    EXPECT_EQ(lines[2], "running      4 ▁▅█");
    EXPECT_EQ(lines[3], "sleeping     5 ▁▁▁");
    EXPECT_EQ(lines[4], "last 2.0s: image-r 75%, load 25%, (none) 0%");
    EXPECT_EQ(page(40, 24)[1], "12: 4 run 5 sleep 2 idle");
    EXPECT_EQ(page(40, 24)[4], "last 2.0s: image-r 75%, load 25%");
}

TEST_F(KttopView, SaysWhatIsGoingOn)
{
    state.paused = true;
    EXPECT_THAT(page(80, 24)[0], HasSubstr(" PAUSED 01:02:03"));
    state.paused = false;
    scene.recording = true;
    EXPECT_THAT(page(80, 24)[0], HasSubstr(" recording 01:02:03"));
    scene.recorded = true;
    EXPECT_THAT(page(80, 24)[0], HasSubstr(" replay 01:02:03"));
    EXPECT_THAT(page(80, 24)[6], StartsWith("no thread has a name"));
    scene.notice = "process 4711 (busy) has ended";
    EXPECT_THAT(page(80, 24)[23], StartsWith("process 4711 (busy) has ended; q quits "));
}

TEST_F(KttopView, SortsByEveryColumn)
{
    add(3, WorkerState::sleeping);
    add(1, WorkerState::running, "b", 5).stateSeconds = 9;
    add(2, WorkerState::running, "a", 7);
    scene.snapshot.workers[0].waitPercent = 3;
    scene.snapshot.workers[1].voluntaryRate = 3;
    scene.snapshot.workers[2].involuntaryRate = 3;
    scene.snapshot.workers[2].reading.cpuNs = 3;
    scene.snapshot.workers[1].reading.kernelState = 'R';
    scene.snapshot.workers[2].reading.waitsIn = "a";
    scene.snapshot.workers[0].reading.pool = "a";
    scene.snapshot.workers[2].reading.pool = "b";
    EXPECT_THAT(order(Column::tid), ElementsAre(1, 2, 3));
    EXPECT_THAT(order(Column::state), ElementsAre(1, 2, 3));
    EXPECT_THAT(order(Column::state, true), ElementsAre(3, 1, 2));
    EXPECT_THAT(order(Column::task), ElementsAre(3, 2, 1));
    EXPECT_THAT(order(Column::pool), ElementsAre(3, 2, 1));
    EXPECT_THAT(order(Column::pool, true), ElementsAre(2, 3, 1));
    EXPECT_THAT(order(Column::cpu), ElementsAre(2, 1, 3));
    EXPECT_THAT(order(Column::cpu, true), ElementsAre(3, 1, 2));
    EXPECT_THAT(order(Column::wait), ElementsAre(3, 1, 2));
    EXPECT_THAT(order(Column::cpuTime), ElementsAre(2, 1, 3));
    EXPECT_THAT(order(Column::since), ElementsAre(1, 2, 3));
    EXPECT_THAT(order(Column::voluntary), ElementsAre(1, 2, 3));
    EXPECT_THAT(order(Column::involuntary), ElementsAre(2, 1, 3));
    EXPECT_THAT(order(Column::kernel), ElementsAre(1, 2, 3));
    EXPECT_THAT(order(Column::waitsIn), ElementsAre(2, 1, 3));
}

TEST_F(KttopView, SortsWhatIsNotKnownToTheEnd)
{
    add(1, WorkerState::running, "a").hasSwitchRates = false;
    add(2, WorkerState::running, "a").reading.hasDetails = false;
    add(3, WorkerState::running, "a");
    for (const bool reverse : {false, true}) {
        EXPECT_THAT(order(Column::voluntary, reverse), ElementsAre(2, 3, 1));
        EXPECT_THAT(order(Column::involuntary, reverse), ElementsAre(2, 3, 1));
        EXPECT_THAT(order(Column::kernel, reverse), ElementsAre(1, 3, 2));
        EXPECT_THAT(order(Column::waitsIn, reverse), ElementsAre(1, 3, 2));
        EXPECT_THAT(order(Column::task, reverse), ElementsAre(1, 2, 3));
    }
}

TEST_F(KttopView, FiltersByTask)
{
    add(1, WorkerState::running, "image-r");
    add(2, WorkerState::running, "Load");
    add(3, WorkerState::sleeping);
    EXPECT_THAT(order(Column::tid, false, "ima"), ElementsAre(1));
    EXPECT_THAT(order(Column::tid, false, "lo"), ElementsAre(2));
    EXPECT_THAT(order(Column::tid, false, "A"), ElementsAre(1, 2));
    EXPECT_THAT(order(Column::tid, false, "image-resize"), ElementsAre(1));
    EXPECT_THAT(order(Column::tid, false, "loading"), ElementsAre());  // "Load" was not cut
    state.filter = "ima";
    EXPECT_THAT(page(80, 24)[23], StartsWith("1-1 of 1 with 'ima' by STATE"));
    state.filter = "none";
    EXPECT_THAT(page(80, 24)[6], StartsWith("no worker runs such a task"));
    EXPECT_THAT(page(80, 24)[23], StartsWith("0 of 0 with 'none'"));
}

TEST_F(KttopView, FiltersByPool)
{
    add(1, WorkerState::running, "a").reading.pool = "Render";
    add(2, WorkerState::sleeping).reading.pool = "Render";
    add(3, WorkerState::sleeping);
    EXPECT_THAT(order(Column::tid, false, "REN"), ElementsAre(1, 2));
    EXPECT_THAT(order(Column::tid, false, "rendering"), ElementsAre());
    state.filter = "none";
    EXPECT_THAT(page(80, 24)[6], StartsWith("no worker runs such a task or is of such a pool"));
}

TEST_F(KttopView, HasAHelpThatFits)
{
    EXPECT_LE(helpLines().size(), 23U);
    for (const std::string& line : helpLines()) {
        EXPECT_LE(columnsOf(line), 80U) << line;
    }
}

TEST_F(KttopView, IsAllThereAsText)
{
    for (int tid = 1; tid <= 100; ++tid) {
        add(tid, WorkerState::running, "a");
    }
    const std::string text = asText(scene, false);
    EXPECT_THAT(text, StartsWith("kttop: busy, pid 4711 "));
    EXPECT_THAT(text, HasSubstr("\n      1 running  a "));
    EXPECT_THAT(text, HasSubstr("\n    100 running  a "));
    EXPECT_EQ(text.find(" \n"), std::string::npos);
}

class KttopControls : public KttopView {
protected:
    void type(const std::string& keys)
    {
        for (const char key : keys) {
            press({KeyKind::text, std::string(1, key)});
        }
    }
    void press(KeyKind kind) { press({kind, ""}); }
    void press(const Key& key)
    {
        controls.press(key);
        controls.shown(buildPage(scene, controls.state(), {80, 10}, false));
    }
    Controls controls;
};

TEST_F(KttopControls, SortByTheNextColumnAndTheOneBefore)
{
    EXPECT_EQ(controls.state().sorting.column, Column::state);
    type("sr");
    EXPECT_EQ(controls.state().sorting.column, Column::task);
    EXPECT_TRUE(controls.state().sorting.reverse);
    type("SS");
    EXPECT_EQ(controls.state().sorting.column, Column::tid);
    EXPECT_FALSE(controls.state().sorting.reverse);
    type("S");
    EXPECT_EQ(controls.state().sorting.column, Column::waitsIn);
    type("s");
    EXPECT_EQ(controls.state().sorting.column, Column::tid);
}

TEST_F(KttopControls, SortByPoolWhereOneHasAName)
{
    type("ss");
    EXPECT_EQ(controls.state().sorting.column, Column::cpu);
    type("S");
    EXPECT_EQ(controls.state().sorting.column, Column::task);
    add(1, WorkerState::sleeping).reading.pool = "io";
    press(KeyKind::resize);
    type("s");
    EXPECT_EQ(controls.state().sorting.column, Column::pool);
    type("s");
    EXPECT_EQ(controls.state().sorting.column, Column::cpu);
}

TEST_F(KttopControls, TakeAFilterIn)
{
    type("/qs ");
    EXPECT_FALSE(controls.wantsToQuit());
    EXPECT_TRUE(controls.state().editingFilter);
    press({KeyKind::text, "ü"});
    EXPECT_EQ(controls.state().filter, "qs ü");
    press(KeyKind::backspace);
    press(KeyKind::backspace);
    press(KeyKind::enter);
    EXPECT_EQ(controls.state().filter, "qs");
    EXPECT_FALSE(controls.state().editingFilter);
    press(KeyKind::escape);
    EXPECT_EQ(controls.state().filter, "");
    type("/ab");
    press(KeyKind::escape);
    EXPECT_EQ(controls.state().filter, "");
    EXPECT_FALSE(controls.state().editingFilter);
}

TEST_F(KttopControls, ScrollWithinTheRows)
{
    for (int tid = 1; tid <= 20; ++tid) {
        add(tid, WorkerState::running, "a");
    }
    press(KeyKind::resize);  // on a page of ten lines there is room for three rows
    press(KeyKind::up);
    EXPECT_EQ(controls.state().first, 0U);
    press(KeyKind::down);
    EXPECT_EQ(controls.state().first, 1U);
    press(KeyKind::pageDown);
    EXPECT_EQ(controls.state().first, 4U);
    press(KeyKind::end);
    EXPECT_EQ(controls.state().first, 17U);
    press(KeyKind::down);
    EXPECT_EQ(controls.state().first, 17U);
    press(KeyKind::pageUp);
    EXPECT_EQ(controls.state().first, 14U);
    press(KeyKind::home);
    EXPECT_EQ(controls.state().first, 0U);
}

TEST_F(KttopControls, ShowHelpAndComeBackToTheSameRows)
{
    for (int tid = 1; tid <= 20; ++tid) {
        add(tid, WorkerState::running, "a");
    }
    press(KeyKind::down);
    type("h");
    EXPECT_TRUE(controls.state().help);
    EXPECT_EQ(controls.state().first, 0U);
    press(KeyKind::down);
    EXPECT_TRUE(controls.state().help);
    EXPECT_EQ(controls.state().first, 1U);
    type("x");
    EXPECT_FALSE(controls.state().help);
    EXPECT_EQ(controls.state().first, 1U);
    type("?");
    EXPECT_TRUE(controls.state().help);
    press(KeyKind::escape);
    EXPECT_FALSE(controls.state().help);
    EXPECT_FALSE(controls.wantsToQuit());
    type("hq");
    EXPECT_TRUE(controls.wantsToQuit());
}

TEST_F(KttopControls, PauseAndQuit)
{
    type(" ");
    EXPECT_TRUE(controls.state().paused);
    type(" ");
    EXPECT_FALSE(controls.state().paused);
    EXPECT_FALSE(controls.wantsToQuit());
    type("q");
    EXPECT_TRUE(controls.wantsToQuit());
}

}  // namespace
