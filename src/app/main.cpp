#include "journal/diagnostics.h"

#include <QCoreApplication>
#include <QTextStream>

#include <cstdio>

int main(int argc, char* argv[]) {
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("Tovin"));
    QCoreApplication::setApplicationVersion(QStringLiteral(TOVIN_VERSION));

    // Until the desktop shell lands, Tovin answers the question it can already answer: what the
    // scheduler would decide right now, and why.
    QTextStream(stdout) << tovin::Diagnostics::why();
    return 0;
}
