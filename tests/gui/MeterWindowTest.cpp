// The meter window under the progress meter's rules, with the meter's clock
// in the test's hands.

#include "TemporaryHome.h"

#include "shell/MeterWindow.h"

using kestrel::engine::ProgressMeter;
using kestrel::shell::MeterWindow;

class MeterWindowTest : public QObject {
    Q_OBJECT

private:
    // A frame, its meter window and a meter on a clock the test sets.
    struct Rig {
        QMainWindow frame;
        MeterWindow* window;
        double now = 3600.0;
        ProgressMeter meter;
        Rig() : window(new MeterWindow(&frame)), meter(window, [this] { return now; }) {
            window->attach(&meter);
            frame.show();
        }
    };

private Q_SLOTS:
    // When it shows is the meter's rule (tested with the engine); the window
    // follows it and shows the caption and the bar. The frame's pointer is
    // busy from the start until the meter closes; the meter keeps the normal
    // pointer, so Cancel looks clickable.
    void followsTheMeter() {
        Rig rig;
        QCOMPARE(rig.frame.cursor().shape(), Qt::ArrowCursor);
        rig.meter.initialise(40, QStringLiteral("Scanning Directory"), true);
        QVERIFY(!rig.window->isVisible());
        QCOMPARE(rig.window->windowTitle(), QStringLiteral("Scanning Directory"));
        QVERIFY(rig.window->captionText().startsWith(QStringLiteral("Scanning Directory")));
        QCOMPARE(rig.window->bar()->maximum(), 40);
        QCOMPARE(rig.frame.cursor().shape(), Qt::WaitCursor);
        QCOMPARE(rig.window->cursor().shape(), Qt::ArrowCursor);

        rig.now += 0.5;
        rig.meter.update(3);
        QVERIFY(!rig.window->isVisible());
        QCOMPARE(rig.window->bar()->value(), 3);
        rig.now += 0.75;
        rig.meter.update(5);
        QVERIFY(rig.window->isVisible());
        QCOMPARE(rig.window->bar()->value(), 5);
        QCOMPARE(rig.frame.cursor().shape(), Qt::WaitCursor);

        // A note shows under the bar until the next operation starts.
        rig.meter.note(QStringLiteral("2 folders could not be read"));
        QCOMPARE(rig.window->noteText(), QStringLiteral("2 folders could not be read"));
        QVERIFY(rig.window->height() >
                rig.window->bar()->geometry().bottom() + rig.window->cancelButton()->height());

        rig.meter.close();
        QVERIFY(!rig.window->isVisible());
        QCOMPARE(rig.frame.cursor().shape(), Qt::ArrowCursor);
        rig.meter.initialise(40, QStringLiteral("Comparing Snapshots"), false);
        QCOMPARE(rig.window->noteText(), QString());
        rig.meter.close();
    }

    // A click on Cancel arrives while the operation lets events through;
    // the button is there only for an operation that can be cancelled. The
    // frame cannot close the meter.
    void cancelReachesTheMeterDuringUpdate() {
        Rig rig;
        rig.meter.initialise(10, QStringLiteral("Saving Snapshot"), false);
        QVERIFY(!rig.window->cancelButton()->isEnabled());
        rig.meter.initialise(10, QStringLiteral("Scanning Directory"), true);
        rig.now += 1.5;
        rig.meter.update(1);
        QVERIFY(rig.window->cancelButton()->isEnabled());
        QVERIFY(!rig.meter.cancelled());
        QVERIFY(!rig.window->close());
        QVERIFY(rig.window->isVisible());

        QTimer::singleShot(0, rig.window->cancelButton(), &QPushButton::click);
        rig.meter.update(2);
        QVERIFY(rig.meter.cancelled());
        rig.meter.close();
    }
};

int main(int argc, char** argv) {
    return runWindowTest<MeterWindowTest>(argc, argv);
}

#include "MeterWindowTest.moc"
