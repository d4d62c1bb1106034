#pragma once

#include <QDialog>
#include <QIcon>
#include <QPixmap>
#include <QString>

class QPushButton;

namespace kestrel::shell {

// The program's emblem: a kestrel hovering against the sky, size × size
// logical pixels, for a screen of the given device pixel ratio.
QPixmap KestrelEmblem(int size, qreal devicePixelRatio = 1.0);
// The emblem as the program's icon, painted afresh at every size asked for.
QIcon KestrelIcon();

// "Kestrel v" and the version of this build.
QString VersionText();

// The about box: the program's name and version, what it does, a short
// disclaimer and links to its web pages (opened in the user's browser). It is
// loaded at start-up, shown modally from Help › About and shown briefly
// while the program closes.
class AboutBox : public QDialog {
    Q_OBJECT
public:
    explicit AboutBox(QWidget* parent = nullptr);

    // Shows the box without waiting for the user, for the given time, then
    // hides it. Events keep running meanwhile.
    void DisplayBriefly(int milliseconds);

private:
    QPushButton* m_ok = nullptr;
};

} // namespace kestrel::shell
