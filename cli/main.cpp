#include "Commands.h"

#include <QCoreApplication>

int main(int argc, char* argv[]) {
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("Kestrel"));
    return kestrel::cli::run(QCoreApplication::arguments());
}
