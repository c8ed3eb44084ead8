#include "View.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <ctime>
#include <initializer_list>

#include "Help.h"
#include "Sparkline.h"
#include "Text.h"

namespace {

// A page this high has these lines; on a lower one there is more room for the workers instead.
const std::size_t linesForHistory = 10;
const std::size_t linesForTasks = 8;
const std::size_t linesForCounts = 5;
const std::size_t linesForTitle = 4;

/// "sleeping  1234 " stands before the blocks.
const std::size_t historyLabel = 15;

/// Of text that goes to a file or a pipe.
const std::size_t plainColumns = 100;

std::string clockTime(std::int64_t wallClockMs)
{
    const std::time_t seconds = static_cast<std::time_t>(wallClockMs / 1000);
    std::tm parts{};
    localtime_r(&seconds, &parts);
    std::array<char, 16> text{};
    std::strftime(text.data(), text.size(), "%H:%M:%S", &parts);
    return text.data();
}

/// The first of the texts, longest first, that fits; the last one cut if none does.
std::string fitting(std::initializer_list<std::string> texts, std::size_t columns)
{
    for (const std::string& text : texts) {
        if (columnsOf(text) <= columns) {
            return text;
        }
    }
    return cutTo(*(texts.end() - 1), columns);
}

Line titleLine(const Scene& scene, const ViewState& state, std::size_t columns, bool utf8)
{
    const std::string name = shown(scene.process.name, utf8);
    const std::string pid = std::to_string(scene.process.pid);
    const std::string time = clockTime(scene.snapshot.wallClockMs);
    const std::string what = state.paused      ? "PAUSED "
                             : scene.recorded  ? "replay "
                             : scene.recording ? "recording "
                                               : "";
    const std::string left =
        fitting({"kttop: " + name + ", pid " + pid, name + ", pid " + pid, name + " " + pid},
                columns - std::min(columns, what.size() + time.size() + 1));
    const std::size_t rest = columns - columnsOf(left);
    return {{left, Style::title},
            {paddedLeft(what, rest - std::min(rest, time.size())),
             state.paused ? Style::warning : Style::faint},
            {cutTo(time, rest), Style::faint}};
}

std::string countsText(const Snapshot& snapshot, std::size_t columns)
{
    const Counts& c = snapshot.counts;
    const auto number = [](int count) { return std::to_string(count); };
    const std::string workers = number(c.workers) + (c.workers == 1 ? " worker: " : " workers: ");
    const std::string full = workers + number(c.running) + " running, " + number(c.sleeping) +
                             " sleeping, " + number(c.idle) + " idle, " + number(c.fresh) + " new";
    const std::string others =
        number(c.otherThreads) + (c.otherThreads == 1 ? " other thread" : " other threads");
    const std::string cpu = ", CPU " + asPercent(snapshot.cpuPercent) + "%";
    return fitting(
        {full + "; " + others + cpu, full + "; " + number(c.otherThreads) + " others" + cpu,
         full + "; " + number(c.otherThreads) + " others",
         workers + number(c.running) + " run, " + number(c.sleeping) + " sleep, " + number(c.idle) +
             " idle, " + number(c.fresh) + " new",
         number(c.workers) + ": " + number(c.running) + " run " + number(c.sleeping) + " sleep " +
             number(c.idle) + " idle"},
        columns);
}

void addHistory(const Snapshot& snapshot, std::size_t columns, bool utf8, std::vector<Line>& lines)
{
    const HistoryLine line =
        historyLine(snapshot.moments, columns - std::min(columns, historyLabel));
    const auto add = [&](const char* label, int count, const std::vector<double>& values,
                         Style style) {
        const std::string text = padded(label, 9) + paddedLeft(std::to_string(count), 5) + " ";
        lines.push_back(
            {{cutTo(text, columns), Style::plain},
             {cutTo(sparkline(values, line.top, utf8), columns - std::min(columns, historyLabel)),
              style}});
    };
    add("running", snapshot.counts.running, line.running, Style::running);
    add("sleeping", snapshot.counts.sleeping, line.sleeping, Style::sleeping);
}

std::string tasksText(const Snapshot& snapshot, std::size_t columns, bool utf8)
{
    const double seconds = historyLine(snapshot.moments, 1).seconds;
    std::string text = "last " + asDuration(seconds) + ":";
    if (snapshot.tasks.empty()) {
        return cutTo(text + " no task seen", columns);
    }
    for (const SeenTask& seen : snapshot.tasks) {
        const double percent =
            100 * static_cast<double>(seen.looks) / static_cast<double>(snapshot.taskLooks);
        const std::string more = " " + (seen.task.empty() ? "(none)" : shown(seen.task, utf8)) +
                                 " " + std::to_string(std::lround(percent)) + "%";
        if (columnsOf(text) + columnsOf(more) + 1 > columns) {
            break;
        }
        text += more + ",";
    }
    text.pop_back();
    return cutTo(text, columns);
}

std::string rowsText(const Page& page)
{
    if (page.rows == 0) {
        return "0 of 0";
    }
    return std::to_string(page.first + 1) + "-" + std::to_string(page.first + page.visible) +
           " of " + std::to_string(page.rows);
}

Line footerLine(const Scene& scene, const ViewState& state, const Page& page, std::size_t columns,
                bool utf8)
{
    if (!scene.notice.empty()) {
        return {
            {padded(fitting({shown(scene.notice, utf8) + "; q quits", shown(scene.notice, utf8)},
                            columns),
                    columns),
             Style::warning}};
    }
    const std::string filter = shown(state.filter, utf8);
    if (state.editingFilter) {
        const std::string text = "filter: " + filter + "_";
        return {
            {padded(fitting({text + "  (Enter keeps it, Esc clears it)", text}, columns), columns),
             Style::title}};
    }
    const std::string rows = rowsText(page) + (filter.empty() ? "" : " with '" + filter + "'");
    const std::string by = std::string(" by ") + titleOf(state.sorting.column) +
                           (state.sorting.reverse ? " reversed" : "");
    const std::string keys = "  h help  s sort  r reverse  / filter  space pause  q quit";
    return {{padded(fitting({rows + by + keys, rows + by + "  h help  s sort  / filter  q quit",
                             rows + by + "  h help  q quit", rows + by, rows},
                            columns),
                    columns),
             Style::faint}};
}

/// Sets which rows are on the page: as many as there is room for, and no room wasted at the end.
template <typename Part>
void scroll(Part& part, std::size_t rows, std::size_t room, std::size_t first)
{
    part.visible = std::min(rows, room);
    part.first = std::min(first, rows - part.visible);
}

Page helpPage(const ViewState& state, Size size)
{
    Page page;
    const std::vector<std::string>& lines = helpLines();
    page.rows = lines.size();
    scroll(page, page.rows, size.lines > 1 ? size.lines - 1 : size.lines, state.first);
    for (std::size_t i = page.first; i < page.first + page.visible; ++i) {
        page.lines.push_back(
            {{cutTo(lines[i], size.columns), i == 0 ? Style::title : Style::plain}});
    }
    if (size.lines > 1) {
        page.lines.resize(size.lines - 1);
        page.lines.push_back(
            {{cutTo("any other key goes back, arrows scroll", size.columns), Style::faint}});
    }
    return page;
}

void addTop(const Scene& scene, const ViewState& state, Size size, bool utf8, Page& page)
{
    if (size.lines >= linesForTitle) {
        page.lines.push_back(titleLine(scene, state, size.columns, utf8));
    }
    if (size.lines >= linesForCounts) {
        page.lines.push_back({{countsText(scene.snapshot, size.columns), Style::plain}});
    }
    if (size.lines >= linesForHistory) {
        addHistory(scene.snapshot, size.columns, utf8, page.lines);
    }
    if (size.lines >= linesForTasks) {
        page.lines.push_back({{tasksText(scene.snapshot, size.columns, utf8), Style::plain}});
    }
}

/// Those of addTop, of the table's header and of the footer.
std::size_t linesWithoutRows(std::size_t lines)
{
    std::size_t taken = 2;
    taken += lines >= linesForTitle ? 1 : 0;
    taken += lines >= linesForCounts ? 1 : 0;
    taken += lines >= linesForHistory ? 2 : 0;
    taken += lines >= linesForTasks ? 1 : 0;
    return taken;
}

std::string emptyText(const Scene& scene, const ViewState& state)
{
    if (scene.snapshot.workers.empty()) {
        return "no thread has a name that libktthread gives its workers";
    }
    if (state.filter.empty()) {
        return "";
    }
    return poolColumns(scene.snapshot) == 0 ? "no worker runs such a task"
                                            : "no worker runs such a task or is of such a pool";
}

}  // namespace

Rows rowsFor(const Snapshot& snapshot, const ViewState& state, Size size)
{
    Rows rows;
    rows.workers = selectWorkers(snapshot, state.filter, state.sorting);
    const std::size_t taken = linesWithoutRows(size.lines);
    scroll(rows, rows.workers.size(), size.lines > taken ? size.lines - taken : 0, state.first);
    return rows;
}

Page buildPage(const Scene& scene, const ViewState& state, Size size, bool utf8)
{
    if (state.help) {
        return helpPage(state, size);
    }
    Page page;
    addTop(scene, state, size, utf8, page);
    const TableLayout layout = layoutFor(scene.snapshot, size.columns);
    page.hasPools = layout.poolWidth != 0;
    page.lines.push_back(tableHeader(layout, state.sorting));
    const Rows rows = rowsFor(scene.snapshot, state, size);
    page.rows = rows.workers.size();
    page.first = rows.first;
    page.visible = rows.visible;
    for (std::size_t i = page.first; i < page.first + page.visible; ++i) {
        page.lines.push_back(tableRow(*rows.workers[i], layout, utf8));
    }
    if (page.rows == 0 && page.lines.size() + 1 < size.lines) {
        page.lines.push_back({{cutTo(emptyText(scene, state), size.columns), Style::faint}});
    }
    page.lines.resize(std::max<std::size_t>(size.lines, 1) - 1);
    page.lines.push_back(footerLine(scene, state, page, size.columns, utf8));
    return page;
}

std::string asText(const Scene& scene, bool utf8)
{
    const ViewState state;
    const Size size{plainColumns, linesForTasks};
    Page page;
    addTop(scene, state, size, utf8, page);
    if (scene.recorded) {
        addHistory(scene.snapshot, size.columns, utf8, page.lines);
    }
    const TableLayout layout =
        layoutFor(scene.snapshot, size.columns + poolColumns(scene.snapshot));
    page.lines.push_back(tableHeader(layout, state.sorting));
    for (const Worker* const worker : selectWorkers(scene.snapshot, "", state.sorting)) {
        page.lines.push_back(tableRow(*worker, layout, utf8));
    }
    if (scene.snapshot.workers.empty()) {
        page.lines.push_back({{emptyText(scene, state), Style::plain}});
    }
    std::string text;
    for (const Line& line : page.lines) {
        const std::string whole = textOf(line);
        text += whole.substr(0, whole.find_last_not_of(' ') + 1) + '\n';
    }
    return text;
}
