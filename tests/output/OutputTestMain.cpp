// The main of the output tests: a QGuiApplication on the offscreen platform
// (fonts, painting, PDF) and a fixed locale, then the tests.

#include <gtest/gtest.h>

#include <QGuiApplication>
#include <QLocale>

int main(int argc, char** argv) {
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication application(argc, argv);
    QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
