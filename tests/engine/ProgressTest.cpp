#include "engine/support/Progress.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <tuple>
#include <vector>

using namespace kestrel::engine;
using namespace Qt::StringLiterals;

namespace {

using kestrel::test::RecordingView;

class ProgressTest : public ::testing::Test {
protected:
    double now = 36000; // seconds since midnight
    RecordingView view;
    ProgressMeter meter{&view, [this] { return now; }};
};

// Shown only after more than a second (1.00000001 is the same as 1.0 in
// single precision), and never across midnight; events run on every update.
// (The meter window's tests see it hidden at half a second, shown after it,
// closed and started again.)
TEST_F(ProgressTest, ShowsOnlyAfterMoreThanOneSecond) {
    const std::tuple<double, double, bool> runs[] = {{36000, 36001, false},
                                                     {36000, 36001.00000001, false},
                                                     {36000, 36001.001, true},
                                                     {86399.5, 2, false}};
    for (const auto& [start, end, shown] : runs) {
        RecordingView v;
        ProgressMeter m(&v, [this] { return now; });
        now = start;
        m.initialise(10, u"Scanning"_s, true);
        now = end;
        m.update(1);
        EXPECT_EQ(m.shown(), shown) << start << " to " << end;
        EXPECT_EQ(v.shown, shown ? 1 : 0) << start << " to " << end;
        EXPECT_EQ(v.events, 1);
    }
}

// A maximum of 0 or less keeps the range, the caption and a cancel already
// pressed; each initialise decides anew whether Cancel counts. A value
// above the maximum is ignored.
TEST_F(ProgressTest, InitialiseWithoutMaximumKeepsRangeCaptionAndCancel) {
    meter.initialise(10, u"Saving Snapshot"_s, false);
    meter.cancel();
    EXPECT_FALSE(meter.cancelled());

    meter.initialise(50, u"Loading Snapshot"_s, true);
    meter.cancel();
    ASSERT_TRUE(meter.cancelled());
    for (int32_t maximum : {0, -5}) {
        meter.initialise(maximum, u"Other"_s, true);
        // The view is told what the meter keeps.
        EXPECT_EQ(std::tuple(meter.maximum(), meter.caption(), meter.cancelled(), view.maximum,
                             view.caption),
                  std::tuple(50, u"Loading Snapshot"_s, true, 50, u"Loading Snapshot"_s));
    }
    meter.initialise(20, u"Saving Snapshot"_s, false);
    EXPECT_EQ(meter.maximum(), 20);
    EXPECT_FALSE(meter.cancelled());
    meter.initialise(10, u"Loading Snapshot"_s, true);
    meter.initialise(0, QString(), false);
    meter.cancel();
    EXPECT_FALSE(meter.cancelled());

    view.values.clear();
    for (int32_t v : {4, 11, 10, 2147483647, -1})
        meter.update(v);
    EXPECT_EQ(view.values, (std::vector<int32_t>{4, 10, -1}));
    EXPECT_EQ(meter.value(), -1);
}

} // namespace
