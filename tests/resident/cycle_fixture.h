#pragma once

#include "core/atomic_file.h"
#include "resident/app_controller.h"
#include "resident/countdown_panel.h"
#include "resident/guards/call_detector.h"
#include "resident/guards/presence.h"
#include "resident/records/journal.h"
#include "resident/records/promise_ledger.h"
#include "resident/records/save_failures.h"
#include "resident/records/schedule_store.h"
#include "resident/records/settings.h"
#include "screens/local_screens.h"
#include "support/fake_clock.h"
#include "support/fake_platform.h"

#include <QLabel>
#include <QTemporaryDir>
#include <QTimeZone>

#include <gtest/gtest.h>
#include <utility>

namespace tovin::fakes {

// A controller over a throw-away week, settings file, journal and a fake clock, idle source and
// call probe; the shield is the seam it raises through, recorded here.
class CycleTest : public ::testing::Test {
protected:
    void SetUp() override {
        prefs.setLockoutWorkoutID(QStringLiteral("classic-7"));
        writeFileAtomically(webRoot + u"/index.html", "<!doctype html><p>workout</p>");
        // The notice is put out of sight for every test here.
        countdown.placeAt(QPoint(-30000, -30000));
    }
    void TearDown() override {
        controller.reset();
        screens.reset();
    }

    // The screens drawn in this process. The lockout's content is a plain label here; the web app
    // has tests of its own.
    AppDependencies freshScreens() {
        screens = std::make_unique<LocalScreens>(clock);
        screens->setContentFactory([this](const LockoutPage& page, bool prepared) -> QWidget* {
            built.append({page, prepared});
            return new QLabel(QStringLiteral("workout"));
        });
        return {clock, idle,   calls,   *screens,     countdown, week,
                prefs, ledger, journal, saveFailures, markPath};
    }

    // A fresh controller, as after a launch.
    AppController& launch() {
        controller.reset();
        controller = std::make_unique<AppController>(freshScreens());
        controller->setCalendar(Calendar::utc());
        controller->setWebRoot(webRoot);
        QObject::connect(&screens->shield(), &ShieldController::upChanged, [this](bool up) {
            if (up)
                raises.append(controller->pendingBlock());
        });
        QObject::connect(controller.get(), &AppController::alertRequested,
                         [this](const QString& title) { alerts.append(title); });
        QObject::connect(controller.get(), &AppController::quitRequested,
                         [this] { ++terminations; });
        QObject::connect(controller.get(), &AppController::setupWindowWanted,
                         [this] { ++setupWanted; });
        return *controller;
    }

    ShieldController& shield() const { return screens->shield(); }

    void setWeek(const QList<Block>& blocks) { week.saveAll(blocks); }

    // The journal's lines under this tag, whole.
    QStringList journalLines(const QString& tag) const {
        return journal.tail(100000).filter(u"] [" + tag + u"] ");
    }

    static Block block(const char* at, const char* label, Block::Kind kind = Block::Kind::Workout) {
        return Block{QString::fromUtf8(at), QString::fromUtf8(label), kind, {}, {}};
    }

    QTemporaryDir dir;
    QString schedulePath = dir.filePath(QStringLiteral("schedule.json"));
    QString markPath = dir.filePath(QStringLiteral("lockout-underway.json"));
    QString webRoot = dir.filePath(QStringLiteral("web"));
    // Monday 2 March 2026, 09:00 UTC (the pinned calendar is UTC).
    FakeClock clock{QDateTime(QDate(2026, 3, 2), QTime(9, 0), QTimeZone::utc())};
    Journal journal{dir.filePath(QStringLiteral("tovin-journal-test-cycle.log")), clock};
    SaveFailures saveFailures{journal};
    JsonFileSettingsStore settingsStore{dir.filePath(QStringLiteral("settings.json")),
                                        &saveFailures};
    Preferences prefs{settingsStore};
    ScheduleStore week{schedulePath, &saveFailures};
    PromiseLedger ledger{dir.filePath(QStringLiteral("promises.json")), &journal, &saveFailures};
    FakeIdle idle;
    std::shared_ptr<FakeCallProbe> probe = std::make_shared<FakeCallProbe>();
    CallDetector calls{probe};
    CountdownPanel countdown{clock, calls};
    std::unique_ptr<LocalScreens> screens;
    std::unique_ptr<AppController> controller;
    QList<std::optional<Block>> raises;        // the block pending at each raise
    QList<std::pair<LockoutPage, bool>> built; // each page drawn, and whether behind a countdown
    QStringList alerts;                        // their titles
    int terminations = 0;
    int setupWanted = 0;
};

} // namespace tovin::fakes
