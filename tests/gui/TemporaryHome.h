#pragma once

#include <QByteArray>
#include <QString>

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
