#ifdef TOVIN_TEST_GUI
#include <QApplication>
#else
#include <QCoreApplication>
#endif
#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <cstdlib>
#include <gtest/gtest.h>

int main(int argc, char** argv) {
    // Every folder Tovin could write to points into a private temporary folder, set before Qt
    // reads the environment: no test can reach the person's real schedule, ledger or journal.
    QTemporaryDir home;
    if (!home.isValid())
        return 2;
    for (const char* var :
         {"HOME", "XDG_DATA_HOME", "XDG_CONFIG_HOME", "XDG_RUNTIME_DIR", "XDG_CACHE_HOME"}) {
        const QByteArray dir = (home.path() + u'/' + QString::fromLatin1(var)).toLocal8Bit();
        QDir().mkpath(QString::fromLocal8Bit(dir));
        QFile::setPermissions(QString::fromLocal8Bit(dir),
                              QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        ::setenv(var, dir.constData(), 1);
    }
#ifdef TOVIN_TEST_GUI
    // Widgets tests run headless unless the test says otherwise (an Xvfb display of its own).
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        ::setenv("QT_QPA_PLATFORM", "offscreen", 1);
    QApplication app(argc, argv);
#else
    QCoreApplication app(argc, argv);
#endif
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
