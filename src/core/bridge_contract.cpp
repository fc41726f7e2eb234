#include "core/bridge_contract.h"

namespace tovin {

QString toString(PageMode mode) {
    switch (mode) {
    case PageMode::Setup:
        return QStringLiteral("setup");
    case PageMode::Locked:
        return QStringLiteral("locked");
    case PageMode::Retest:
        return QStringLiteral("retest");
    }
    return {};
}

namespace BridgeContract {

QList<Type> schema() {
    return {
        {QStringLiteral("workoutComplete"), {QStringLiteral("exercise"), QStringLiteral("reps")}},
        {QStringLiteral("promisesSynced"), {QStringLiteral("promises")}},
        {QStringLiteral("busy"), {QStringLiteral("reason")}},
        {QStringLiteral("saveSchedule"), {QStringLiteral("blocks")}},
        {QStringLiteral("setWorkoutPlan"), {QStringLiteral("blocks")}},
        {QStringLiteral("saveSettings"),
         {QStringLiteral("lockoutWorkoutId"), QStringLiteral("weekdays"),
          QStringLiteral("fromMinute"), QStringLiteral("toMinute"),
          QStringLiteral("triggerAfterMinutes"), QStringLiteral("onboarded"),
          QStringLiteral("retestDueInDays")}},
    };
}

QString bridgeFunctions() {
    return QStringLiteral(R"JS(
  complete: function (exercise, reps) {
    window.__tovinPost({ type: 'workoutComplete', exercise: String(exercise || ''),
                         reps: Number(reps || 0) });
  },
  promisesSynced: function (merged) {
    window.__tovinPost({ type: 'promisesSynced', promises: JSON.stringify(merged || []) });
  },
  setBusy: function (reason) {
    window.__tovinPost({ type: 'busy', reason: String(reason || '') });
  },
  clearBusy: function () {
    window.__tovinPost({ type: 'busy', reason: '' });
  },
  saveSchedule: function (blocks) {
    window.__tovinPost({ type: 'saveSchedule', blocks: JSON.stringify(blocks) });
  },
  setWorkoutPlan: function (blocks) {
    window.__tovinPost({ type: 'setWorkoutPlan', blocks: JSON.stringify(blocks || []) });
  },
  saveSettings: function (s) {
    window.__tovinPost(Object.assign({ type: 'saveSettings' }, s));
  }
)JS");
}

} // namespace BridgeContract
} // namespace tovin
