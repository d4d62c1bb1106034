#include "TestSupport.h"

#include "engine/support/Progress.h"

#include <gtest/gtest.h>

#include <vector>

using namespace kestrel::engine;

namespace {

using kestrel::test::RecordingView;

class ProgressTest : public ::testing::Test {
protected:
    double now = 36000; // seconds since midnight
    RecordingView view;
    ProgressMeter meter{&view, [this] { return now; }};
};

TEST_F(ProgressTest, ShowsOnlyAfterMoreThanOneSecond) {
    // 1.00000001 is the same as 1.0 in single precision.
    for (const double elapsed : {0.5, 1.0, 1.00000001, 1.001, 60.0}) {
        RecordingView v;
        ProgressMeter m(&v, [this] { return now; });
        now = 36000;
        m.initialise(10, QStringLiteral("Scanning"), true);
        now += elapsed;
        m.update(1);
        const bool shown = elapsed > 1.0001;
        EXPECT_EQ(m.shown(), shown) << elapsed;
        EXPECT_EQ(v.shown, shown ? 1 : 0) << elapsed;
        EXPECT_EQ(v.events, 1) << elapsed; // events run on every update
    }
}

// Each initialise starts the second afresh; once shown, the meter stays
// shown, and is told so once, until it is closed.
TEST_F(ProgressTest, ShowsOnceFromTheLastInitialiseUntilClosed) {
    meter.initialise(10, QStringLiteral("First"), true);
    now += 0.8;
    meter.initialise(10, QStringLiteral("Second"), true);
    now += 0.7; // 1.5 s since the first, 0.7 s since the second
    meter.update(1);
    EXPECT_FALSE(meter.shown());
    for (int i = 2; i <= 20; ++i) {
        now += 0.1;
        meter.update(i);
    }
    meter.initialise(100, QStringLiteral("Third"), true);
    meter.update(21);
    EXPECT_TRUE(meter.shown());
    EXPECT_EQ(view.shown, 1);
    EXPECT_EQ(view.events, 21);
    EXPECT_EQ(meter.value(), 21);
    EXPECT_EQ(view.closed, 0);
    meter.close();
    EXPECT_FALSE(meter.shown());
    EXPECT_EQ(view.closed, 1);
}

TEST_F(ProgressTest, NeverShowsAcrossMidnight) {
    now = 86399.5;
    meter.initialise(100, QStringLiteral("Scanning"), true);
    for (double t : {2.0, 30.0, 3600.0}) {
        now = t;
        meter.update(1);
    }
    EXPECT_FALSE(meter.shown());
    EXPECT_EQ(view.shown, 0);
}

// A maximum of 0 or less keeps the range, the caption and a cancel already
// pressed; each initialise decides anew whether Cancel counts.
TEST_F(ProgressTest, InitialiseWithoutMaximumKeepsRangeCaptionAndCancel) {
    meter.initialise(10, QStringLiteral("Saving Snapshot"), false);
    meter.cancel();
    EXPECT_FALSE(meter.cancelled());

    meter.initialise(50, QStringLiteral("Loading Snapshot"), true);
    meter.cancel();
    ASSERT_TRUE(meter.cancelled());
    for (int32_t maximum : {0, -5}) {
        meter.initialise(maximum, QStringLiteral("Other"), true);
        EXPECT_EQ(meter.maximum(), 50);
        EXPECT_EQ(meter.caption(), QStringLiteral("Loading Snapshot"));
        EXPECT_TRUE(meter.cancelled());
        EXPECT_EQ(view.maximum, 50); // the view is told what the meter keeps
        EXPECT_EQ(view.caption, QStringLiteral("Loading Snapshot"));
    }

    meter.initialise(20, QStringLiteral("Saving Snapshot"), false);
    EXPECT_EQ(meter.maximum(), 20);
    EXPECT_FALSE(meter.cancelled());
    meter.initialise(10, QStringLiteral("Loading Snapshot"), true);
    meter.initialise(0, QString(), false);
    meter.cancel();
    EXPECT_FALSE(meter.cancelled());
}

TEST_F(ProgressTest, ValueAboveMaximumIsIgnored) {
    meter.initialise(10, QStringLiteral("Comparing"), false);
    for (int32_t v : {4, 11, 10, 2147483647, -1})
        meter.update(v);
    EXPECT_EQ(view.values, (std::vector<int32_t>{4, 10, -1}));
    EXPECT_EQ(meter.value(), -1);
    EXPECT_EQ(view.events, 5);
}

} // namespace
