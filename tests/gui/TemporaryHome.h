#pragma once

// Every window test reaches for widgets and QtTest: both whole.
#include <QtTest>
#include <QtWidgets>

// A dialog's control by its object name; the test ends if there is none.
template <typename T> T* control(QWidget& dialog, const char* name) {
    auto* widget = dialog.findChild<T*>(QLatin1String(name));
    if (!widget)
        qFatal("no control %s", name);
    return widget;
}

// Blank-separated texts as a list: words(u"a b") is {"a", "b"}.
inline QStringList words(const QString& text) {
    return text.split(QLatin1Char(' '), Qt::SkipEmptyParts);
}

inline void writeFile(const QString& path, const QByteArray& contents) {
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(contents);
}

inline QByteArray readFile(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("(missing)");
}

inline void setTime(const QString& path, const QDateTime& when) {
    QFile file(path);
    QVERIFY(file.open(QIODevice::ReadWrite));
    QVERIFY(file.setFileTime(when, QFileDevice::FileModificationTime));
}

// Files under root, their folders made, each holding its own name and
// dated when.
inline void writeFiles(const QString& root, const QStringList& names, const QDateTime& when) {
    for (const QString& name : names) {
        QVERIFY(QDir().mkpath(QFileInfo(root + u'/' + name).path()));
        writeFile(root + u'/' + name, name.toUtf8());
        setTime(root + u'/' + name, when);
    }
}

// A script only its owner may read, write and run.
inline void writeProgram(const QString& path, const QByteArray& script) {
    writeFile(path, script);
    QVERIFY(QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
}

// A click on a row (or cell) of a view, scrolled into sight first.
inline void clickIndex(QAbstractItemView* view, const QModelIndex& index,
                       Qt::KeyboardModifiers modifiers = {}) {
    view->scrollTo(index);
    QTest::mouseClick(view->viewport(), Qt::LeftButton, modifiers,
                      view->visualRect(index).center());
}

inline void clickHeading(QHeaderView* header, int section) {
    QTest::mouseClick(header->viewport(), Qt::LeftButton, {},
                      QPoint(header->sectionViewportPosition(section) + 4, header->height() / 2));
}

// Alt+menu opens a menu of window's menu bar, then item takes its entry.
inline void menuByKeys(QWidget* window, Qt::Key menu, Qt::Key item) {
    QTest::keyClick(window, menu, Qt::AltModifier);
    // The menu bar opens its menu once the key has been handled.
    QTRY_VERIFY(QApplication::activePopupWidget());
    QTest::keyClick(QApplication::activePopupWidget(), item);
}

// Files dragged from the file manager onto target: whether it took them.
inline bool dropFiles(QWidget* target, const QList<QUrl>& urls, QPoint at = QPoint(20, 20)) {
    QMimeData data;
    data.setUrls(urls);
    QDragEnterEvent enter(at, Qt::CopyAction, &data, Qt::LeftButton, {});
    QApplication::sendEvent(target, &enter);
    if (!enter.isAccepted())
        return false;
    QDropEvent drop(at, Qt::CopyAction, &data, Qt::LeftButton, {});
    QApplication::sendEvent(target, &drop);
    return drop.isAccepted();
}

// One notch of the mouse wheel, down, at a point of widget.
inline void wheelDown(QWidget* widget, QPointF at) {
    QWheelEvent wheel(at, widget->mapToGlobal(at), {}, QPoint(0, -120), Qt::NoButton, {},
                      Qt::NoScrollPhase, false);
    QApplication::sendEvent(widget, &wheel);
}

// The main of a window test: everything a window test could read or write
// of the user's (the settings store, configuration and runtime files) in a
// temporary home, the windows offscreen unless told otherwise, a fixed
// locale, then the test's slots.
template <typename Test> int runWindowTest(int argc, char** argv) {
    QTemporaryDir home;
    const QString config = home.path() + QStringLiteral("/config");
    qputenv("HOME", home.path().toLocal8Bit());
    qputenv("XDG_CONFIG_HOME", config.toLocal8Bit());
    qputenv("XDG_RUNTIME_DIR", home.path().toLocal8Bit());
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication application(argc, argv);
    for (auto format : {QSettings::NativeFormat, QSettings::IniFormat})
        QSettings::setPath(format, QSettings::UserScope, config);
    QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
    Test test;
    return QTest::qExec(&test, argc, argv);
}
