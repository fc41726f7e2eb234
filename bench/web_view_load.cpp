// What a workout screen costs to show: time from creating the web view to loadFinished and to
// the first non-empty body, and the resident memory of the whole process tree (Qt WebEngine
// runs its renderer and zygotes as child processes).
//
//   web_view_load [web root = the staged web app, else the test fixture] [runs = 5]

#include "core/bundle_routes.h"
#include "resident/records/bridge_messages.h"
#include "resident/records/promise_ledger.h"
#include "resident/records/schedule_store.h"
#include "resident/records/settings.h"
#include "screens/web/bundle_scheme_handler.h"
#include "screens/web/workout_web_view.h"

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QWebEnginePage>

#include <cstdio>
#include <unistd.h>

using namespace tovin;

namespace {

// Resident set of a process and all its descendants, in KiB, from /proc.
qint64 treeRssKiB(qint64 root) {
    QMultiHash<qint64, qint64> children;
    for (const QString& entry : QDir(QStringLiteral("/proc")).entryList(QDir::Dirs)) {
        bool ok = false;
        const qint64 pid = entry.toLongLong(&ok);
        if (!ok)
            continue;
        QFile stat(QStringLiteral("/proc/%1/stat").arg(pid));
        if (!stat.open(QIODevice::ReadOnly))
            continue;
        const QByteArray line = stat.readAll();
        const QList<QByteArray> fields = line.mid(line.lastIndexOf(')') + 2).split(' ');
        if (fields.size() > 1)
            children.insert(fields[1].toLongLong(), pid);
    }
    qint64 total = 0;
    QList<qint64> todo{root};
    while (!todo.isEmpty()) {
        const qint64 pid = todo.takeLast();
        QFile status(QStringLiteral("/proc/%1/status").arg(pid));
        if (status.open(QIODevice::ReadOnly)) {
            for (const QByteArray& l : status.readAll().split('\n')) {
                if (l.startsWith("VmRSS:"))
                    total += l.mid(6).trimmed().split(' ').value(0).toLongLong();
            }
        }
        todo.append(children.values(pid));
    }
    return total;
}

} // namespace

int main(int argc, char* argv[]) {
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    qputenv("QTWEBENGINE_DISABLE_SANDBOX", "1");
    BundleSchemeHandler::registerScheme();
    QCoreApplication::setAttribute(Qt::AA_ShareOpenGLContexts);
    QApplication app(argc, argv);
    QTemporaryDir dir;
    MemorySettingsStore store;
    const Preferences prefs(store);
    const ScheduleStore week(dir.filePath(QStringLiteral("s.json")));

    QString root =
        argc > 1
            ? QString::fromLocal8Bit(argv[1])
            : BundleRoutes::bundledRoot().value_or(QStringLiteral(TOVIN_WEB_FIXTURES) + u"/bridge");
    const int runs = argc > 2 ? std::max(1, atoi(argv[2])) : 5;
    const PromiseLedger ledger(dir.filePath(QStringLiteral("p.json")));

    for (int i = 0; i < runs; ++i) {
        QElapsedTimer timer;
        timer.start();
        WorkoutWebView view(root,
                            BridgeMessages::nativeState(PageMode::Locked, true,
                                                        QStringLiteral("Bench"), week, ledger,
                                                        prefs),
                            Clock::system());
        view.resize(1200, 800);
        view.show();
        QSignalSpy loaded(view.page(), &QWebEnginePage::loadFinished);
        if (!loaded.wait(30000)) {
            std::fprintf(stderr, "the page did not load\n");
            return 1;
        }
        const double loadMs = double(timer.nsecsElapsed()) / 1e6;
        bool painted = false;
        while (!painted && timer.elapsed() < 30000) {
            bool done = false;
            view.page()->runJavaScript(
                QStringLiteral("document.body ? document.body.innerText.trim().length : 0"),
                [&](const QVariant& v) {
                    painted = v.toInt() > 0;
                    done = true;
                });
            if (!QTest::qWaitFor([&] { return done; }, 5000))
                break;
        }
        const double bodyMs = double(timer.nsecsElapsed()) / 1e6;
        std::printf("run %d (%s): loadFinished %.0f ms, first non-empty body %.0f ms, "
                    "process tree RSS %.0f MiB\n",
                    i + 1, i == 0 ? "cold" : "warm", loadMs, bodyMs,
                    double(treeRssKiB(::getpid())) / 1024.0);
    }
    std::printf("(web root: %s, QT_QPA_PLATFORM=%s)\n", qPrintable(root),
                qgetenv("QT_QPA_PLATFORM").constData());
    return 0;
}
