#include "Histogram.h"

#include <gtest/gtest.h>

namespace {

Histogram of(std::int64_t from, std::int64_t to)
{
    Histogram histogram;
    for (std::int64_t value = from; value <= to; ++value) {
        histogram.record(value);
    }
    return histogram;
}

TEST(Histogram, WithoutValuesHasQuantilesOfZero)
{
    EXPECT_EQ(0, Histogram().quantile(0.5));
    EXPECT_EQ(0, Histogram().quantile(1));
    EXPECT_EQ(0, Histogram().count());
}

TEST(Histogram, IsExactForSmallValues)
{
    const Histogram histogram = of(1, 200);
    EXPECT_EQ(200, histogram.count());
    EXPECT_EQ(1, histogram.quantile(0));
    EXPECT_EQ(100, histogram.quantile(0.5));
    EXPECT_EQ(198, histogram.quantile(0.99));
    EXPECT_EQ(200, histogram.quantile(1));
}

TEST(Histogram, IsRightToOnePercentForLargeValues)
{
    for (std::int64_t value = 1; value < std::int64_t(1) << 39; value += value / 3 + 1) {
        Histogram histogram;
        histogram.record(value);
        histogram.record(2 * value);
        EXPECT_GE(histogram.quantile(0.5), value);
        EXPECT_LE(static_cast<double>(histogram.quantile(0.5)), 1.01 * static_cast<double>(value));
    }
}

TEST(Histogram, GivesNoMoreThanTheLargestValue)
{
    Histogram histogram;
    histogram.record(1000001);
    EXPECT_EQ(1000001, histogram.quantile(0.999));
}

TEST(Histogram, OfRareLargeValuesShowsThemFromTheirShareOn)
{
    Histogram histogram = of(1, 99);
    histogram.record(1000000);
    EXPECT_EQ(99, histogram.quantile(0.99));
    EXPECT_EQ(1000000, histogram.quantile(0.991));
}

TEST(Histogram, TakesAnyValue)
{
    Histogram histogram;
    histogram.record(-1);
    histogram.record(INT64_MAX);
    EXPECT_EQ(0, histogram.quantile(0.5));
    EXPECT_EQ((std::int64_t(1) << 40) - 1, histogram.quantile(1));
}

}  // namespace
