// The costs of the core's hot paths: what the scheduler pays every tick, what the journal pays
// per line, what a promise costs to record with a real ledger on disk, one settings read.
#include "core/atomic_file.h"
#include "core/coachbox.h"
#include "core/coaches.h"
#include "core/manual_clock.h"
#include "core/schedule.h"
#include "resident/records/journal.h"
#include "resident/records/promise_ledger.h"
#include "resident/records/settings.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTimeZone>

#include <atomic>
#include <benchmark/benchmark.h>
#include <cstdlib>
#include <new>

using namespace tovin;

namespace {

QTemporaryDir& scratch() {
    static QTemporaryDir dir;
    return dir;
}

Schedule twentyBlockWeek() {
    QList<Block> week;
    for (int i = 0; i < 20; ++i) {
        Block b{QStringLiteral("%1:%2").arg(7 + i % 12).arg(i * 7 % 60, 2, 10, QChar(u'0')),
                QStringLiteral("Block %1").arg(i),
                i % 3 == 0 ? Block::Kind::Away : Block::Kind::Workout,
                i % 2 ? std::optional<int>(15) : std::nullopt,
                i % 4 ? std::optional<QList<int>>({2, 3, 4, 5, 6}) : std::nullopt};
        week.append(b);
    }
    return week;
}

void BM_ScheduleTick(benchmark::State& state) {
    const Schedule week = twentyBlockWeek();
    const Calendar calendar(QTimeZone("Europe/Berlin"));
    const FiredSet fired{week.blocks()[3].key(), week.blocks()[8].key()};
    const TickState tickState;
    // Monday afternoon: several blocks pending, one due.
    QDateTime now(QDate(2026, 3, 2), QTime(12, 40), QTimeZone::utc());
    for (auto _ : state) {
        Tick tick = week.tick(now, fired, tickState, calendar);
        benchmark::DoNotOptimize(tick);
    }
}
BENCHMARK(BM_ScheduleTick);

void BM_ScheduleTickIdle(benchmark::State& state) {
    // Nothing due: the tick also builds the idle reason text.
    const Schedule week = twentyBlockWeek();
    const Calendar calendar(QTimeZone("Europe/Berlin"));
    QDateTime now(QDate(2026, 3, 2), QTime(4, 0), QTimeZone::utc());
    for (auto _ : state) {
        Tick tick = week.tick(now, {}, {}, calendar);
        benchmark::DoNotOptimize(tick);
    }
}
BENCHMARK(BM_ScheduleTickIdle);

void BM_JournalStateUnchanged(benchmark::State& state) {
    Journal journal(scratch().filePath(QStringLiteral("tovin-journal-bench-state.log")));
    const QString tag = QStringLiteral("schedule");
    const QString message = QStringLiteral("idle — next is The Classic 7 at 13:00");
    journal.state(tag, message);
    for (auto _ : state)
        journal.state(tag, message);
}
BENCHMARK(BM_JournalStateUnchanged);

void BM_JournalNote(benchmark::State& state) {
    Journal journal(scratch().filePath(QStringLiteral("tovin-journal-bench-note.log")));
    const QString tag = QStringLiteral("shield");
    const QString message = QStringLiteral("raised over 2 screens — The Classic 7");
    for (auto _ : state)
        journal.note(tag, message);
}
BENCHMARK(BM_JournalNote);

// A ledger of n records on file, as years of use leave it: a daily promise, every seventh broken.
QString ledgerOnFile(int n) {
    const QString path = scratch().filePath(u"bench-promises-" + QString::number(n) + u".json");
    QList<PromiseRecord> seed;
    seed.reserve(n);
    const QDateTime start(QDate(2016, 1, 1), QTime(9, 0), QTimeZone::utc());
    for (int i = 0; i < n; ++i)
        seed.append({start.addSecs(i * 7200LL),
                     i % 7 ? PromiseRecord::Outcome::Tovin : PromiseRecord::Outcome::Broken,
                     QStringLiteral("The Classic 7"), 82, 80,
                     i % 7 ? std::nullopt : std::optional(PromiseRecord::Reason::DidntFeelLikeIt),
                     i % 5 == 0});
    writeFileAtomically(path, PromiseJson::encode(seed, PromiseJson::Layout::Pretty));
    return path;
}

// Reading the ledger at launch.
void BM_LedgerLoad(benchmark::State& state) {
    const QString path = ledgerOnFile(int(state.range(0)));
    for (auto _ : state) {
        PromiseLedger ledger(path);
        benchmark::DoNotOptimize(ledger.records().size());
    }
    state.counters["MB"] = double(QFileInfo(path).size()) / 1e6;
}
BENCHMARK(BM_LedgerLoad)->Arg(1000)->Arg(50000)->Unit(benchmark::kMillisecond);

// One more promise kept, on disk (synced) when record() returns.
void BM_LedgerRecord(benchmark::State& state) {
    Journal journal(scratch().filePath(QStringLiteral("tovin-journal-bench-ledger.log")));
    const QString path = ledgerOnFile(int(state.range(0)));
    PromiseLedger ledger(path, &journal);
    PromiseRecord next{QDateTime(QDate(2030, 1, 1), QTime(9, 0), QTimeZone::utc()),
                       PromiseRecord::Outcome::Tovin,
                       QStringLiteral("squat"),
                       12,
                       10,
                       {},
                       {}};
    for (auto _ : state) {
        ledger.record(next, false);
        next.date = next.date.addSecs(60);
    }
    state.counters["records"] = double(ledger.records().size());
}
BENCHMARK(BM_LedgerRecord)->Arg(1000)->Arg(50000)->Unit(benchmark::kMillisecond)->Iterations(20);

void BM_SettingsReadFileStore(benchmark::State& state) {
    JsonFileSettingsStore store(scratch().filePath(QStringLiteral("bench-settings.json")));
    Preferences prefs(store);
    prefs.setMaxShieldMinutes(20);
    prefs.setActiveWeekdays({2, 3, 4, 5, 6});
    for (auto _ : state)
        benchmark::DoNotOptimize(prefs.maxShieldMinutes());
}
BENCHMARK(BM_SettingsReadFileStore);

void BM_SettingsReadMemoryStore(benchmark::State& state) {
    MemorySettingsStore store;
    Preferences prefs(store);
    prefs.setMaxShieldMinutes(20);
    for (auto _ : state)
        benchmark::DoNotOptimize(prefs.maxShieldMinutes());
}
BENCHMARK(BM_SettingsReadMemoryStore);

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}

// The coach's voice is offered a phrase nearly every camera frame; dropping one must cost next
// to nothing and allocate nothing (every allocation of this program is counted to show it).
static std::atomic<long> allocations{0};
void* operator new(std::size_t size) {
    ++allocations;
    if (void* p = std::malloc(size ? size : 1))
        return p;
    throw std::bad_alloc();
}
void operator delete(void* p) noexcept {
    std::free(p);
}
void operator delete(void* p, std::size_t) noexcept {
    std::free(p);
}

namespace {
struct CountingSpeaker final : tovin::Speaker {
    int spoken = 0;
    void speak(const QString&, double, double, double) override { ++spoken; }
};
} // namespace

static void BM_CoachboxSayDropped(benchmark::State& state) {
    // A UTC instant, as the system clock gives: no time zone object to copy.
    tovin::ManualClock clock(QDateTime(QDate(2026, 3, 2), QTime(9, 0), Qt::UTC));
    CountingSpeaker speaker;
    tovin::Coachbox box(clock, speaker);
    const QString phrase = QStringLiteral("Knees out");
    box.say(phrase);
    const long before = allocations.load();
    for (auto _ : state)
        box.say(phrase, true); // the same phrase within 6 s: dropped
    state.counters["allocations"] = double(allocations.load() - before);
    if (speaker.spoken != 1)
        state.SkipWithError("a dropped phrase was spoken");
}
BENCHMARK(BM_CoachboxSayDropped);

// One frame through a coach.
static void BM_SquatCoachUpdate(benchmark::State& state) {
    tovin::SquatCoach coach([](int) { return 0; });
    tovin::PoseFrame frame;
    const tovin::Joint joints[] = {tovin::Joint::LeftHip,      tovin::Joint::RightHip,
                                   tovin::Joint::LeftKnee,     tovin::Joint::RightKnee,
                                   tovin::Joint::LeftAnkle,    tovin::Joint::RightAnkle,
                                   tovin::Joint::LeftShoulder, tovin::Joint::RightShoulder};
    const QPointF points[] = {{0.45, 0.5},  {0.55, 0.5},  {0.44, 0.3}, {0.56, 0.3},
                              {0.44, 0.05}, {0.56, 0.05}, {0.4, 0.8},  {0.6, 0.8}};
    for (int i = 0; i < 8; ++i)
        frame.set(joints[i], points[i], 0.9f);
    for (auto _ : state)
        benchmark::DoNotOptimize(coach.update(frame));
}
BENCHMARK(BM_SquatCoachUpdate);
