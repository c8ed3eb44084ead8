#include "PageDetails.h"

#include <cstddef>

namespace {

/// Readings of rows beyond the page that may be made a second: they cost about 20 us each.
const double beyondThePageASecond = 50;

}  // namespace

void readDetailsOfPage(Source& source, History& history, const ViewState& state, Size size)
{
    const Rows rows = rowsFor(history.latest(), state, size);
    auto beyond = static_cast<std::size_t>(beyondThePageASecond * source.pause());
    // From the top of the page to the end, and on from the first row.
    for (std::size_t i = 0; i < rows.workers.size(); ++i) {
        const std::size_t row = (rows.first + i) % rows.workers.size();
        WorkerReading reading = rows.workers[row]->reading;
        if (reading.hasDetails) {
            continue;
        }
        if (i >= rows.visible && beyond-- == 0) {
            return;
        }
        source.readDetails(reading);
        history.addDetails(reading);
    }
}
