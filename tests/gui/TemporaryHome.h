#pragma once

// Every window test reaches for widgets and QtTest: both whole.
#include <QtTest>
#include <QtWidgets>

// Points everything a window test could read or write of the user's (the
// settings store, configuration and runtime files) at a temporary home, and
// runs the windows offscreen unless told otherwise. Call before the
// QApplication is made.
inline void useTemporaryHome(const QString& home) {
    qputenv("HOME", home.toLocal8Bit());
    qputenv("XDG_CONFIG_HOME", (home + QStringLiteral("/config")).toLocal8Bit());
    qputenv("XDG_RUNTIME_DIR", home.toLocal8Bit());
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
}

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

// The main of a window test: a temporary home, the settings store inside
// it, a fixed locale, then the test's slots.
template <typename Test> int runWindowTest(int argc, char** argv) {
    QTemporaryDir home;
    useTemporaryHome(home.path());
    QApplication application(argc, argv);
    for (auto format : {QSettings::NativeFormat, QSettings::IniFormat})
        QSettings::setPath(format, QSettings::UserScope, home.path() + QStringLiteral("/config"));
    QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
    Test test;
    return QTest::qExec(&test, argc, argv);
}
