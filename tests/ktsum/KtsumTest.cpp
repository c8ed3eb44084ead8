#include <cstdint>
#include <memory>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "CheckList.h"
#include "Digest.h"
#include "Names.h"
#include "Progress.h"
#include "Report.h"
#include "Source.h"

namespace {

const std::string hex(64, 'a');

TEST(KtsumNames, AreEscapedWhereAListNeedsIt)
{
    EXPECT_EQ(asPrinted("plain * name"), "plain * name");
    EXPECT_EQ(asPrinted("a\nb"), "\\a\\nb");
    EXPECT_EQ(asPrinted("a\\b\r"), "\\a\\\\b\\r");
}

TEST(KtsumNames, ComeBackFromTheirEscapedForm)
{
    for (const std::string name : {"a\nb", "\\", "\\n", "\r\n\\\\", ""}) {
        EXPECT_EQ(unescaped(escaped(name)), name);
    }
    EXPECT_FALSE(unescaped("\\"));
    EXPECT_FALSE(unescaped("\\t"));
}

struct Line {
    std::string text;
    const char* name;  ///< null: improper
};

void PrintTo(const Line& line, std::ostream* out)
{
    *out << line.text.substr(0, 20) << (line.name != nullptr ? " proper" : " improper");
}

class KtsumCheckLines : public testing::TestWithParam<Line> {};

TEST_P(KtsumCheckLines, IsUnderstoodOrNot)
{
    Spacing spacing = Spacing::unknown;
    const auto parsed = parseCheckLine(GetParam().text, "SHA256", 64, spacing);
    ASSERT_EQ(static_cast<bool>(parsed), GetParam().name != nullptr);
    if (parsed) {
        EXPECT_EQ(parsed->name, GetParam().name);
        EXPECT_EQ(parsed->digest, hex);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Lines, KtsumCheckLines,
    testing::Values(Line{hex + "  file", "file"}, Line{hex + " *file", "file"},
                    Line{hex + "   file", " file"}, Line{" \t" + hex + "  file", "file"},
                    Line{std::string(64, 'A') + "  file", "file"},
                    Line{"\\" + hex + "  a\\nb", "a\nb"}, Line{"\\" + hex + "  a\\", nullptr},
                    Line{"SHA256 (a (b)) = " + hex, "a (b)"}, Line{"SHA256(a)= " + hex, "a"},
                    Line{"\\SHA256 (a\\\\b) = " + hex, "a\\b"}, Line{"SHA1 (a) = " + hex, nullptr},
                    Line{"SHA256 (a) " + hex, nullptr}, Line{"SHA256 (a) = ", nullptr},
                    Line{"SHA256", nullptr}, Line{hex, nullptr}, Line{hex + " ", nullptr},
                    Line{hex + "  ", " "}, Line{hex + "\tfile", "file"}, Line{hex + " *", "*"},
                    Line{"SHA256  (a) = " + hex, nullptr}, Line{"SHA256 () = " + hex, ""},
                    Line{hex + "a  file", nullptr}, Line{hex.substr(1) + "  file", nullptr},
                    Line{hex.substr(1) + "g  file", nullptr}, Line{"", nullptr},
                    Line{"\\", nullptr}, Line{hex + "  a" + std::string(1, '\0') + "b", nullptr}));

TEST(KtsumCheckLine, KeepsToTheSpacingOfTheFirst)
{
    Spacing spacing = Spacing::unknown;
    EXPECT_TRUE(parseCheckLine(hex + "  a", "SHA256", 64, spacing));
    EXPECT_FALSE(parseCheckLine(hex + " a", "SHA256", 64, spacing));
    EXPECT_EQ(parseCheckLine(hex + " *a", "SHA256", 64, spacing)->name, "a");
    spacing = Spacing::unknown;
    EXPECT_EQ(parseCheckLine(hex + " a", "SHA256", 64, spacing)->name, "a");
    EXPECT_EQ(parseCheckLine(hex + "  a", "SHA256", 64, spacing)->name, " a");
    EXPECT_EQ(parseCheckLine(hex + " *a", "SHA256", 64, spacing)->name, "*a");
}

TEST(KtsumDigest, KnowsWhatOpenSslKnows)
{
    EXPECT_EQ(Digest("sha512").hexLength(), 128U);
    EXPECT_EQ(Digest("sha256").tag(), "SHA256");
    EXPECT_THROW(Digest("nonsense"), std::invalid_argument);
}

/// Entries named by their number.
class Numbers : public Source {
public:
    explicit Numbers(int numberOfEntries) : count(numberOfEntries) {}
    bool next(Entry& entry) override
    {
        entry.path = std::to_string(position);
        return position++ < count;
    }

private:
    int count;
    int position = 0;
};

TEST(KtsumShard, PartsAreTheWholeAndOfAboutTheSameSize)
{
    for (const int count : {0, 1, 7, 8, 9}) {
        for (const std::uint64_t parts : {1U, 2U, 4U, 11U}) {
            int seen = 0;
            for (std::uint64_t part = 1; part <= parts; ++part) {
                Numbers counted(count);
                Shard shard(std::make_unique<Numbers>(count), counted, part, parts);
                Entry entry;
                std::uint64_t size = 0;
                for (; shard.next(entry); ++size) {
                    EXPECT_EQ(entry.path, std::to_string(seen++));
                }
                const std::uint64_t each = static_cast<std::uint64_t>(count) / parts;
                EXPECT_TRUE(size == each || size == each + 1);
            }
            EXPECT_EQ(seen, count);
        }
    }
}

TEST(KtsumWaitingTimes, QuantilesAreOffByASixteenthAtMost)
{
    WaitingTimes times;
    EXPECT_EQ(times.quantile(0.5), 0);
    for (std::int32_t i = 1; i <= 100000; ++i) {
        times.add(i);
    }
    EXPECT_NEAR(times.quantile(0.5), 50000, 50000.0 / 16);
    EXPECT_NEAR(times.quantile(0.95), 95000, 95000.0 / 16);
    EXPECT_EQ(times.quantile(1), 100000);
    EXPECT_EQ(times.longest(), 100000);
}

TEST(KtsumWaitingTimes, TakeEveryTimeThereIs)
{
    WaitingTimes times;
    times.add(INT32_MIN);
    EXPECT_EQ(times.quantile(1), 0);
    times.add(INT32_MAX);
    EXPECT_EQ(times.quantile(1), INT32_MAX);
    times.add(17);
    EXPECT_EQ(times.quantile(0.5), 17);
}

TEST(KtsumFormat, UsesUnitsThatPeopleRead)
{
    EXPECT_EQ(formatBytes(999), "999 B");
    EXPECT_EQ(formatBytes(1536), "1.5 KiB");
    EXPECT_EQ(formatBytes(200.0 * 1024 * 1024), "200 MiB");
    EXPECT_EQ(formatSeconds(0.000012), "12 us");
    EXPECT_EQ(formatSeconds(0.0123), "12.3 ms");
    EXPECT_EQ(formatSeconds(2.5), "2.50 s");
    EXPECT_EQ(formatSeconds(125), "2 min 5 s");
}

TEST(KtsumFormat, ProgressShowsTotalsOnceTheyAreKnown)
{
    ProgressFigures figures;
    figures.bytes = 1024;
    figures.files = 3;
    figures.seconds = 1;
    figures.busy = 2;
    figures.workers = 4;
    EXPECT_EQ(formatProgress(figures), "3 files, 1.0 KiB, 1.0 KiB/s, 2 of 4 workers busy");
    figures.allBytes = 3072;
    figures.allFiles = 9;
    EXPECT_EQ(formatProgress(figures),
              "3 of 9 files, 1.0 KiB of 3.0 KiB, 1.0 KiB/s, 2.00 s left, 2 of 4 workers busy");
}

}  // namespace
