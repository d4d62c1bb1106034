#include "engine/Progress.h"

#include <gtest/gtest.h>

#include <vector>

using namespace kestrel::engine;

namespace {

class RecordingView : public ProgressView {
public:
    int started = 0, shown = 0, events = 0, closed = 0;
    int32_t startedMaximum = 0;
    QString startedCaption;
    std::vector<int32_t> values;

    void meterStarted(int32_t maximum, const QString& caption, bool) override {
        ++started;
        startedMaximum = maximum;
        startedCaption = caption;
    }
    void meterShown() override { ++shown; }
    void meterValue(int32_t value) override { values.push_back(value); }
    void processEvents() override { ++events; }
    void meterClosed() override { ++closed; }
};

class ProgressTest : public ::testing::Test {
protected:
    double now = 36000; // seconds since midnight
    RecordingView view;
    ProgressMeter meter{&view, [this] { return now; }};
};

TEST_F(ProgressTest, ShowsOnlyAfterMoreThanOneSecond) {
    struct Case {
        double elapsed;
        bool shown;
    };
    const Case cases[] = {
        {0.5, false},  {1.0, false}, {1.00000001, false}, // the same as 1.0 in single precision
        {1.001, true}, {60, true},
    };
    for (const Case& c : cases) {
        RecordingView v;
        ProgressMeter m(&v, [this] { return now; });
        now = 36000;
        m.initialise(10, QStringLiteral("Scanning"), true);
        now += c.elapsed;
        m.update(1);
        EXPECT_EQ(m.shown(), c.shown) << c.elapsed;
        EXPECT_EQ(v.shown, c.shown ? 1 : 0) << c.elapsed;
        EXPECT_EQ(v.events, 1) << c.elapsed; // events run on every update
    }
}

TEST_F(ProgressTest, ShowsOnceForTheWholeOperation) {
    meter.initialise(100, QStringLiteral("Scanning"), true);
    for (int i = 1; i <= 50; ++i) {
        now += 0.1;
        meter.update(i);
    }
    EXPECT_TRUE(meter.shown());
    EXPECT_EQ(view.shown, 1);
    EXPECT_EQ(view.events, 50);
    EXPECT_EQ(meter.value(), 50);

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

TEST_F(ProgressTest, InitialiseWithoutMaximumKeepsRangeCaptionAndCancel) {
    meter.initialise(50, QStringLiteral("Loading Snapshot"), true);
    meter.cancel();
    ASSERT_TRUE(meter.cancelled());

    for (int32_t maximum : {0, -5}) {
        meter.initialise(maximum, QStringLiteral("Other"), true);
        EXPECT_EQ(meter.maximum(), 50);
        EXPECT_EQ(meter.caption(), QStringLiteral("Loading Snapshot"));
        EXPECT_TRUE(meter.cancelled());
        EXPECT_EQ(view.startedMaximum, 50); // the view is told what the meter keeps
        EXPECT_EQ(view.startedCaption, QStringLiteral("Loading Snapshot"));
    }

    meter.initialise(20, QStringLiteral("Saving Snapshot"), false);
    EXPECT_EQ(meter.maximum(), 20);
    EXPECT_EQ(meter.caption(), QStringLiteral("Saving Snapshot"));
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

TEST_F(ProgressTest, CancelOnlyWhenCancellable) {
    meter.initialise(10, QStringLiteral("Saving Snapshot"), false);
    meter.cancel();
    EXPECT_FALSE(meter.cancelled());

    meter.initialise(10, QStringLiteral("Loading Snapshot"), true);
    meter.cancel();
    EXPECT_TRUE(meter.cancelled());

    // Each initialise decides anew, even one that keeps the range.
    meter.initialise(10, QStringLiteral("Loading Snapshot"), true);
    meter.initialise(0, QString(), false);
    meter.cancel();
    EXPECT_FALSE(meter.cancelled());
}

TEST_F(ProgressTest, InitialiseRestartsTheTiming) {
    meter.initialise(10, QStringLiteral("First"), true);
    now += 0.8;
    meter.initialise(10, QStringLiteral("Second"), true);
    now += 0.7; // 1.5 s since the first, 0.7 s since the second
    meter.update(1);
    EXPECT_FALSE(meter.shown());
    now += 0.4;
    meter.update(2);
    EXPECT_TRUE(meter.shown());
    EXPECT_EQ(view.shown, 1);

    // A shown meter stays shown through a new initialise.
    meter.initialise(10, QStringLiteral("Third"), true);
    meter.update(3);
    EXPECT_TRUE(meter.shown());
    EXPECT_EQ(view.shown, 1);
    EXPECT_EQ(view.closed, 0);
}

} // namespace
