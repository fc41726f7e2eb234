// What watching costs when nothing happens: runs the real decision loop (real timers, the real
// call probe and idle source) over a week with nothing due, for the given number of seconds,
// then prints the process's CPU time and wake-ups (context switches of all its threads).
//
//   idle_watch [seconds = 600]

#include "app/app_controller.h"
#include "guards/platform_guards.h"
#include "journal/journal.h"
#include "schedule/schedule_store.h"
#include "schedule/settings.h"

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTimer>

#include <cstdio>

#include <sys/resource.h>

using namespace tovin;

namespace {

// Voluntary and involuntary switches summed over every thread: each is a wake-up or a preemption.
qint64 contextSwitches() {
    qint64 total = 0;
    const QDir tasks(QStringLiteral("/proc/self/task"));
    for (const QString& task : tasks.entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        QFile status(tasks.filePath(task + u"/status"));
        if (!status.open(QIODevice::ReadOnly))
            continue;
        for (const QByteArray& line : status.readAll().split('\n')) {
            if (line.startsWith("voluntary_ctxt_switches:") ||
                line.startsWith("nonvoluntary_ctxt_switches:"))
                total += line.mid(line.indexOf(':') + 1).trimmed().toLongLong();
        }
    }
    return total;
}

double cpuSeconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return double(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           double(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

} // namespace

int main(int argc, char* argv[]) {
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    const int seconds = argc > 1 ? std::max(1, QString::fromLocal8Bit(argv[1]).toInt()) : 600;

    QTemporaryDir dir;
    Settings::setStore(std::make_shared<JsonFileSettingsStore>(dir.filePath(QStringLiteral("s.json"))));
    Settings::setLockoutWorkoutID(QStringLiteral("classic-7"));
    Journal::setOverrideURL(dir.filePath(QStringLiteral("tovin-journal-test-idle.log")));
    const QString week = dir.filePath(QStringLiteral("schedule.json"));
    ScheduleStore::saveAll({Block{QStringLiteral("03:00"), QStringLiteral("Never now"),
                                  Block::Kind::Workout, {}, QList<int>{}}},
                           week);
    CallDetector::setProbe(createPlatformCallProbe());
    auto idle = createPlatformIdleSource();

    AppController controller(Clock::system(), *idle);
    controller.setScheduleURL(week);
    controller.usage().start();
    controller.startScheduleWatch();

    // Measured from here: the start-up work above is not watching.
    const double cpu0 = cpuSeconds();
    const qint64 switches0 = contextSwitches();
    QTimer::singleShot(seconds * 1000, &app, &QCoreApplication::quit);
    app.exec();
    const double cpu = cpuSeconds() - cpu0;
    const qint64 wakeups = contextSwitches() - switches0;

    std::printf("idle watching for %d s (idle source: %s)\n", seconds,
                qPrintable(idle->name()));
    std::printf("  CPU time:   %.3f s (%.4f%% of one core)\n", cpu, 100.0 * cpu / seconds);
    std::printf("  wake-ups:   %lld (%.3f per second)\n", static_cast<long long>(wakeups),
                double(wakeups) / seconds);
    std::printf("  floor:      %.3f per second (a 30 s tick and a 15 s sample)\n",
                1.0 / 30 + 1.0 / 15);
    Journal::setOverrideURL(std::nullopt);
    return 0;
}
