#pragma once

#include "app/app_controller.h"
#include "screens/local_screens.h"
#include "core/atomic_file.h"
#include "journal/journal.h"
#include "promises/promise_ledger.h"
#include "schedule/schedule_store.h"
#include "schedule/settings.h"
#include "support/fake_clock.h"
#include "support/fake_platform.h"

#include <QLabel>
#include <QTemporaryDir>
#include <QTimeZone>

#include <gtest/gtest.h>

namespace tovin::fakes {

// A controller over a throw-away week, settings file, journal and a fake clock, idle source and
// call probe; the shield is the seam it raises through, recorded here.
class CycleTest : public ::testing::Test {
protected:
    void SetUp() override {
        CountdownPanel::offscreenForTests = true;
        Settings::setStore(std::make_shared<JsonFileSettingsStore>(settingsPath));
        Settings::setLockoutWorkoutID(QStringLiteral("classic-7"));
        Journal::setOverrideURL(dir.filePath(QStringLiteral("tovin-journal-test-cycle.log")));
        Journal::setClock(&clock);
        Journal::resetForTesting();
        CallDetector::setProbe(calls);
    }
    void TearDown() override {
        controller.reset();
        screens.reset();
        CallDetector::setProbe(nullptr);
        Journal::setClock(nullptr);
        Journal::setOverrideURL(std::nullopt);
        Settings::setStore(nullptr);
    }

    // A fresh controller, as after a launch, over the screens drawn in this process.
    AppController& launch() {
        controller.reset();
        screens = std::make_unique<LocalScreens>(clock);
        // The lockout's content is a plain label here; the web app has tests of its own.
        screens->setContentFactory([this](const LockoutPage& page, bool prepared) -> QWidget* {
            contents.append({page, prepared});
            return new QLabel(QStringLiteral("workout"));
        });
        controller = std::make_unique<AppController>(AppDependencies{clock, idle, *screens, ledger, schedulePath});
        controller->setCalendar(Calendar::utc());
        controller->setWebRoot(webRoot());
        QObject::connect(&screens->shield(), &ShieldController::upChanged, [this](bool up) {
            if (up)
                raises.append(controller->pendingBlock());
        });
        QObject::connect(controller.get(), &AppController::alertRequested,
                         [this](const QString& title, const QString& detail) { alerts.append(title + u" | " + detail); });
        QObject::connect(controller.get(), &AppController::quitRequested, [this] { ++terminations; });
        QObject::connect(controller.get(), &AppController::setupWindowWanted, [this] { ++setupWanted; });
        return *controller;
    }

    static LocalScreens& screensOf(AppController& c) { return static_cast<LocalScreens&>(c.screens()); }
    static ShieldController& shieldOf(AppController& c) { return screensOf(c).shield(); }

    QString webRoot() {
        const QString root = dir.filePath(QStringLiteral("web"));
        writeFileAtomically(root + u"/index.html", "<!doctype html><p>workout</p>");
        return root;
    }

    void week(const QList<Block>& blocks) {
        ScheduleStore::saveAll(blocks, schedulePath);
    }

    QStringList journal(const QString& tag) const {
        QStringList lines;
        const QString marker = u"] [" + tag + u"] ";
        for (const QString& line : Journal::tail(100000)) {
            const qsizetype at = line.indexOf(marker);
            if (at >= 0)
                lines.append(line.mid(at + marker.size()));
        }
        return lines;
    }

    static Block block(const char* at, const char* label, Block::Kind kind = Block::Kind::Workout) {
        return Block{QString::fromUtf8(at), QString::fromUtf8(label), kind, {}, {}};
    }

    QTemporaryDir dir;
    QString settingsPath = dir.filePath(QStringLiteral("settings.json"));
    QString schedulePath = dir.filePath(QStringLiteral("schedule.json"));
    // Monday 2 March 2026, 09:00 UTC (the pinned calendar is UTC).
    PromiseLedger ledger{dir.filePath(QStringLiteral("promises.json"))};
    FakeClock clock{QDateTime(QDate(2026, 3, 2), QTime(9, 0), QTimeZone::utc())};
    FakeIdle idle;
    std::shared_ptr<FakeCallProbe> calls = std::make_shared<FakeCallProbe>();
    struct Built {
        LockoutPage page;
        bool prepared;
    };
    std::unique_ptr<LocalScreens> screens;
    std::unique_ptr<AppController> controller;
    QList<std::optional<Block>> raises; // the block pending at each raise
    QList<Built> contents;
    QStringList alerts;
    int terminations = 0;
    int setupWanted = 0;
};

} // namespace tovin::fakes
