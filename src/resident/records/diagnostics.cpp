#include "resident/records/diagnostics.h"

#include "core/schedule.h"
#include "resident/records/instance_record.h"
#include "resident/records/journal.h"
#include "resident/records/promise_ledger.h"
#include "resident/records/schedule_store.h"
#include "resident/records/settings.h"

#include <QLocale>
#include <QStringList>
#include <QTextStream>

namespace tovin::Diagnostics {

namespace {

// Dates in the report are the person's local time, in English day and month names.
QString formatLocal(const QDateTime& instant, const Calendar& calendar, const QString& pattern) {
    return QLocale::c().toString(instant.toTimeZone(calendar.zone()), pattern);
}

QString dayList(const Block& block) {
    static const char* const names[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    QStringList days;
    const QList<int> numbers = block.days.value_or(QList<int>{1, 2, 3, 4, 5, 6, 7});
    for (int d : numbers)
        days.append(d >= 1 && d <= 7 ? QString::fromLatin1(names[d - 1]) : QString::number(d));
    return days.join(u',');
}

QString recordLine(const PromiseRecord& r, const Calendar& calendar) {
    QString line = u"  " + formatLocal(r.date, calendar, QStringLiteral("ddd d MMM HH:mm")) +
                   u"  " + toString(r.outcome) + u"  " + r.exercise + u"  " +
                   QString::number(r.reps) + u" reps, " + QString::number(r.cleanReps) + u" clean";
    if (r.attested.value_or(false))
        line += u"  (on your word)";
    if (r.reason)
        line += u"  — " + toString(*r.reason);
    return line;
}

} // namespace

QString why(const WhySources& sources, const Preferences& prefs, const Journal& journal,
            const Clock& clock, const Calendar& calendar) {
    const QDateTime now = clock.now();
    QString text;
    QTextStream out(&text);

    out << "Tovin — why\n";
    out << "  now: " << formatLocal(now, calendar, QStringLiteral("ddd d MMM HH:mm:ss")) << '\n';
    if (const auto running = InstanceRecord::readLive(sources.instancePath)) {
        out << "  running: yes — pid " << running->pid << ", since "
            << (running->launchedAt ? formatLocal(*running->launchedAt, calendar,
                                                  QStringLiteral("ddd d MMM HH:mm:ss"))
                                    : QStringLiteral("launch time unknown"))
            << '\n';
    } else {
        out << "  running: NO — nothing can fire while the app isn't running\n";
    }
    out << '\n';

    Schedule schedule{ScheduleStore::load(sources.schedulePath)};
    out << "Schedule (" << sources.schedulePath << ")\n";
    QList<Block> sorted = schedule.blocks();
    ScheduleStore::sortByTimeOfDay(sorted);
    if (sorted.isEmpty())
        out << "  empty — nothing will ever fire\n";
    for (const Block& b : sorted) {
        out << "  " << b.at << "  " << b.label << "  [" << toString(b.kind);
        if (b.minutes)
            out << ' ' << *b.minutes << "min";
        out << "]  " << dayList(b) << '\n';
    }
    out << '\n';

    TickState state;
    if (prefs.isBusy(now))
        state.holdOff = prefs.busyReason().value_or(QStringLiteral("marked busy"));
    const Tick tick = schedule.tick(now, {}, state, calendar);
    out << "Decision now (assuming nothing has fired today)\n";
    out << "  " << tick.summary() << '\n';
    if (tick.kind() == Tick::Case::Idle && tick.reason().startsWith(u"missed past the")) {
        out << "  ^ this is the designed behaviour for a block missed while asleep or shut,\n";
        out << "    not a failure. Blocks are never queued — see Schedule.due.\n";
    }
    out << '\n';

    out << "Guards\n";
    out << "  quiet hours allow now: "
        << (prefs.scheduleAllows(now, calendar) ? "yes" : "NO — usage watcher suppressed") << '\n';
    if (prefs.isBusy(now)) {
        out << "  busy: YES — " << prefs.busyReason().value_or(QStringLiteral("no reason given"))
            << ", until " << formatLocal(*prefs.busyUntil(), calendar, QStringLiteral("HH:mm:ss"))
            << '\n';
    } else {
        out << "  busy: no\n";
    }
    out << "  onboarded: " << (prefs.hasOnboarded() ? "yes" : "NO — setup never completed") << '\n';
    const auto reportedAt = prefs.retestReportedAt();
    const qint64 dueInDays = prefs.retestDueInDays();
    // Overdue means what the scheduler would act on: a report older than a week is stale and
    // never fires a retest, so it is not called overdue here either.
    if (reportedAt && dueInDays < 1 &&
        reportedAt->secsTo(now) < Settings::retestStaleAfterSeconds) {
        const QDateTime dueAt = reportedAt->addDays(std::max<qint64>(dueInDays, -36500));
        out << "  retest: overdue as of "
            << formatLocal(dueAt, calendar, QStringLiteral("ddd d MMM yyyy")) << '\n';
    }
    if (!sources.updates.isEmpty())
        out << "  updates: " << sources.updates << '\n';
    if (!sources.shield.isEmpty())
        out << "  shield: " << sources.shield << '\n';
    if (!sources.idle.isEmpty())
        out << "  idle: " << sources.idle << '\n';
    if (!sources.calls.isEmpty())
        out << "  calls and shared screens:\n";
    for (const QString& line : sources.calls)
        out << "    " << line << '\n';
    out << '\n';

    if (sources.ledger) {
        const PromiseLedger& ledger = *sources.ledger;
        const auto& records = ledger.records();
        out << "Ledger  (" << records.size() << " record(s): " << ledger.tovin() << " tovin, "
            << ledger.broken() << " broken)\n";
        if (records.isEmpty())
            out << "  empty\n";
        for (qsizetype i = std::max<qsizetype>(0, records.size() - 5); i < records.size(); ++i)
            out << recordLine(records[i], calendar) << '\n';
        out << '\n';
    }

    const QStringList lines = journal.tail(30);
    out << "Journal — last " << lines.size() << " line(s)  (" << journal.url() << ")\n";
    if (lines.isEmpty()) {
        out << "  empty — which means one of two things, and they are not the same:\n";
        out << "   • the running instance predates journalling; relaunch to start recording, or\n";
        out << "   • the scheduler has stopped ticking, since an idle tick still writes a\n";
        out << "     heartbeat every 30 minutes.\n";
        out << "  Compare the launch time above against when this build was made.\n";
    }
    for (const QString& line : lines)
        out << "  " << line << '\n';
    out.flush();
    return text;
}

} // namespace tovin::Diagnostics
