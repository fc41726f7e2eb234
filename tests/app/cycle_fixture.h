#pragma once

#include "app/app_controller.h"
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
    struct Raise {
        QDateTime at;
        bool rehearsal;
        std::optional<Block> block;
    };

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
        CallDetector::setProbe(nullptr);
        Journal::setClock(nullptr);
        Journal::setOverrideURL(std::nullopt);
        Settings::setStore(nullptr);
    }

    // A fresh controller, as after a launch.
    AppController& launch() {
        controller = std::make_unique<AppController>(clock, idle);
        controller->setCalendar(Calendar::utc());
        controller->setScheduleURL(schedulePath);
        controller->setWebRoot(webRoot());
        controller->setLedger(&ledger);
        // The lockout's content is a plain label here; the web app has tests of its own.
        controller->setContentFactory([this](const AppController::LockoutContent& content,
                                             AppController&) -> QWidget* {
            contents.append(content);
            return new QLabel(QStringLiteral("workout"));
        });
        QObject::connect(&controller->shield(), &ShieldController::upChanged, [this](bool up) {
            if (up)
                raises.append({clock.now(), controller->shield().isRehearsal(), controller->pendingBlock()});
        });
        controller->showAlert = [this](const QString& title, const QString& detail) {
            alerts.append(title + u" | " + detail);
        };
        controller->terminate = [this] { ++terminations; };
        return *controller;
    }

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
    std::unique_ptr<AppController> controller;
    QList<Raise> raises;
    QList<AppController::LockoutContent> contents;
    QStringList alerts;
    int terminations = 0;
};

} // namespace tovin::fakes
