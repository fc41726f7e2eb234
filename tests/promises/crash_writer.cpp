// Appends promises, rewrites the week and updates a setting in an endless loop, printing
// "ack N MINE" once the N-th promise is recorded, the MINE-th of its own. The crash-safety test
// kills it at random moments; two of them, each naming its exercise, share one ledger.

#include "resident/records/journal.h"
#include "resident/records/promise_ledger.h"
#include "resident/records/save_failures.h"
#include "resident/records/schedule_store.h"
#include "resident/records/settings.h"

#include <QCoreApplication>
#include <QTimeZone>

#include <cstdio>

using namespace tovin;

int main(int argc, char* argv[]) {
    QCoreApplication app(argc, argv);
    if (argc != 2 && argc != 3)
        return 2;
    const QString exercise = argc == 3 ? QString::fromLocal8Bit(argv[2]) : QStringLiteral("squat");
    const QString dir = QString::fromLocal8Bit(argv[1]);
    Journal journal(dir + u"/tovin-journal-test-crash.log");
    SaveFailures failures(journal);
    JsonFileSettingsStore store(dir + u"/settings.json", &failures);
    Preferences prefs(store);
    PromiseLedger ledger(dir + u"/promises.json", &journal, &failures);
    ScheduleStore weekStore(dir + u"/schedule.json", &failures);

    for (qint64 n = ledger.records().size() + 1, mine = 1;; ++n, ++mine) {
        ledger.record(PromiseRecord{QDateTime::currentDateTimeUtc(),
                                    PromiseRecord::Outcome::Tovin,
                                    exercise,
                                    n,
                                    n,
                                    {},
                                    {}},
                      false);
        std::printf("ack %lld %lld\n", static_cast<long long>(n), static_cast<long long>(mine));
        std::fflush(stdout);

        QList<Block> week;
        for (qint64 i = 0; i < n % 40 + 1; ++i)
            week.append(Block{QStringLiteral("%1:%2").arg(i % 24).arg(i % 60, 2, 10, QChar(u'0')),
                              QStringLiteral("Block %1").arg(i),
                              Block::Kind::Workout,
                              {},
                              {}});
        weekStore.saveAll(week);
        prefs.setFiredBlocksDay(n);
    }
}
