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
    // follows it and shows the caption, the bar and a note under the bar
    // until the next operation starts. The frame's pointer is busy from the
    // start until the meter closes; the meter keeps the normal pointer, so
    // Cancel looks clickable. Cancel is there only for an operation that can
    // be cancelled, its click arrives while the operation lets events
    // through, and the frame cannot close the meter.
    void followsTheMeterAndCancels() {
        Rig rig;
        QCOMPARE(rig.frame.cursor().shape(), Qt::ArrowCursor);
        rig.meter.initialise(40, QStringLiteral("Scanning Directory"), true);
        QVERIFY(!rig.window->isVisible());
        QVERIFY(rig.window->captionText().startsWith(QStringLiteral("Scanning Directory")));
        QCOMPARE(rig.window->bar()->maximum(), 40);
        QCOMPARE(rig.frame.cursor().shape(), Qt::WaitCursor);
        QCOMPARE(rig.window->cursor().shape(), Qt::ArrowCursor);

        rig.now += 0.5;
        rig.meter.update(3);
        QVERIFY(!rig.window->isVisible());
        rig.now += 0.75;
        rig.meter.update(5);
        QVERIFY(rig.window->isVisible());
        QCOMPARE(rig.window->bar()->value(), 5);
        QVERIFY(rig.window->cancelButton()->isEnabled() && !rig.meter.cancelled());
        QVERIFY(!rig.window->close() && rig.window->isVisible());
        rig.meter.note(QStringLiteral("2 folders could not be read"));
        QCOMPARE(rig.window->noteText(), QStringLiteral("2 folders could not be read"));
        QVERIFY(rig.window->height() >
                rig.window->bar()->geometry().bottom() + rig.window->cancelButton()->height());
        QTimer::singleShot(0, rig.window->cancelButton(), &QPushButton::click);
        rig.meter.update(6);
        QVERIFY(rig.meter.cancelled());

        rig.meter.close();
        QVERIFY(!rig.window->isVisible());
        QCOMPARE(rig.frame.cursor().shape(), Qt::ArrowCursor);
        rig.meter.initialise(40, QStringLiteral("Saving Snapshot"), false);
        QCOMPARE(rig.window->noteText(), QString());
        QVERIFY(!rig.window->cancelButton()->isEnabled());
        rig.meter.close();
    }
};

int main(int argc, char** argv) {
    return runWindowTest<MeterWindowTest>(argc, argv);
}

#include "MeterWindowTest.moc"
