#pragma once

#include <QObject>

class QWidget;

namespace kestrel::shell {

// Keeps the user's input away from the frame while a long operation runs.
// The operation runs on the interface thread, and its progress meter lets
// pending events through so that its Cancel button can be clicked; without
// this a click on a folder, a header, the show selector, a menu, the
// toolbar or a key would start a second command inside the first, under
// the same meter, on the same snapshots. Installed on the application for
// the operation's time, it refuses mouse buttons, the wheel, keys and
// shortcuts for the frame and everything in it, its menus and the show
// selector's list included. The meter and the dialogs an operation runs
// under (printing) are windows of their own and keep their input.
class BusyInputFilter : public QObject {
public:
    // frame: the main window. Not owned.
    explicit BusyInputFilter(QWidget* frame, QObject* parent = nullptr);

    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    bool belongsToFrame(QObject* receiver) const;

    QWidget* m_frame;
};

} // namespace kestrel::shell
