#pragma once

#include "core/screens.h"

#include <QByteArray>
#include <QDateTime>
#include <QJsonObject>
#include <QString>

#include <optional>
#include <variant>

namespace tovin {

// The wire between the resident and the screen helper: one compact JSON object per line, over
// a socket pair the resident makes and the helper inherits: no name, nobody else on it. The
// resident sends commands ({"do":NAME,…}), the helper sends events ({"ev":NAME,…}). Both ends
// speak only through the types below; each names itself and carries its fields, and the
// comment beside it is its JSON. Unknown names are ignored, so either side may be newer, and a
// field of the wrong type reads as its default: nothing on the wire can crash either process.
//
// ROLE is "setup", "prepared" or "lockout"; PAGE, STRIP and CARD are LockoutPage, SetupStrip
// and StartCard as objects. No folder is ever named: the helper serves only the web app
// bundled beside it.
namespace ScreenProtocol {

// Commands, resident → helper.
namespace Command {
// {"do":"prepare","page":PAGE}: build a lockout's page behind its countdown
struct Prepare {
    static constexpr const char* name = "prepare";
    LockoutPage page;
};
// {"do":"drop"}: drop the prepared page
struct Drop {
    static constexpr const char* name = "drop";
};
// {"do":"raise","page":PAGE,"rehearsal":bool,"valve":minutes}
struct Raise {
    static constexpr const char* name = "raise";
    LockoutPage page;
    bool rehearsal = false;
    double valveMinutes = 15;
};
// {"do":"lower"}
struct Lower {
    static constexpr const char* name = "lower";
};
// {"do":"valve","now":ISO}: the tick's reminder of the safety valve
struct Valve {
    static constexpr const char* name = "valve";
    QDateTime now;
};
// {"do":"standing","json":TEXT}: the new standing, for the lockout's page
struct Standing {
    static constexpr const char* name = "standing";
    QString json;
};
// {"do":"coachDone","streak":n}
struct CoachDone {
    static constexpr const char* name = "coachDone";
    int streak = 0;
};
// {"do":"setup","gen":n,"native":{…},"strip":STRIP,"geometry":BASE64}: the opening numbered
// n; the helper's reports about the window carry the number of the opening they answer
struct OpenSetup {
    static constexpr const char* name = "setup";
    qint64 generation = 0;
    QJsonObject native;
    SetupStrip strip;
    QByteArray geometry;
};
// {"do":"strip","strip":STRIP}
struct UpdateStrip {
    static constexpr const char* name = "strip";
    SetupStrip strip;
};
// {"do":"hideSetup"}
struct HideSetup {
    static constexpr const char* name = "hideSetup";
};
// {"do":"start","card":CARD}
struct ShowStart {
    static constexpr const char* name = "start";
    StartCard card;
};
// {"do":"quit"}: nothing shows any more: exit
struct Quit {
    static constexpr const char* name = "quit";
};
} // namespace Command

using AnyCommand =
    std::variant<Command::Prepare, Command::Drop, Command::Raise, Command::Lower, Command::Valve,
                 Command::Standing, Command::CoachDone, Command::OpenSetup, Command::UpdateStrip,
                 Command::HideSetup, Command::ShowStart, Command::Quit>;

// Events, helper → resident.
namespace Event {
// {"ev":"hello","pid":n}: once, first
struct Hello {
    static constexpr const char* name = "hello";
    qint64 pid = 0;
};
// {"ev":"alive"}: every second: the helper's event loop runs
struct Alive {
    static constexpr const char* name = "alive";
};
// {"ev":"up","up":bool}: the shield covers every display, or is gone
struct Up {
    static constexpr const char* name = "up";
    bool up = false;
};
// {"ev":"broken","reason":TEXT?}: out through the break warning, with the reason given
struct Broken {
    static constexpr const char* name = "broken";
    std::optional<PromiseRecord::Reason> reason;
};
// {"ev":"timedOut"}
struct TimedOut {
    static constexpr const char* name = "timedOut";
};
// {"ev":"panicked"}
struct Panicked {
    static constexpr const char* name = "panicked";
};
// {"ev":"yielded"}
struct Yielded {
    static constexpr const char* name = "yielded";
};
// {"ev":"quitAsked"}
struct QuitAsked {
    static constexpr const char* name = "quitAsked";
};
// {"ev":"page","role":ROLE,"message":{…}}: a page's bridge message, applied by the resident
struct PageMessage {
    static constexpr const char* name = "page";
    PageRole role = PageRole::Setup;
    QJsonObject message;
};
// {"ev":"failed","role":ROLE,"detail":TEXT}
struct PageFailed {
    static constexpr const char* name = "failed";
    PageRole role = PageRole::Setup;
    QString detail;
};
// {"ev":"loaded","role":ROLE}
struct PageLoaded {
    static constexpr const char* name = "loaded";
    PageRole role = PageRole::Setup;
};
// {"ev":"coachFinished","exercise":TEXT,"reps":n,"clean":n}
struct CoachFinished {
    static constexpr const char* name = "coachFinished";
    QString exercise;
    qint64 reps = 0;
    qint64 cleanReps = 0;
};
// {"ev":"action","name":TEXT,"value":TEXT}: a menu item chosen in a window that draws
struct Action {
    static constexpr const char* name = "action";
    QString action;
    QString value;
};
// {"ev":"setup","active":bool,"visible":bool,"gen":n}: about the opening numbered n
struct SetupState {
    static constexpr const char* name = "setup";
    bool active = false;
    bool visible = false;
    qint64 generation = 0;
};
// {"ev":"note","tag":TEXT,"text":TEXT}: a journal line, written by the resident
struct Note {
    static constexpr const char* name = "note";
    QString tag;
    QString text;
};
} // namespace Event

using AnyEvent = std::variant<Event::Hello, Event::Alive, Event::Up, Event::Broken, Event::TimedOut,
                              Event::Panicked, Event::Yielded, Event::QuitAsked, Event::PageMessage,
                              Event::PageFailed, Event::PageLoaded, Event::CoachFinished,
                              Event::Action, Event::SetupState, Event::Note>;

// One line, newline included.
QByteArray encode(const AnyCommand& command);
QByteArray encode(const AnyEvent& event);
// One received line; none for anything that is not a JSON object naming a known command or
// event (an event naming a role it cannot place is dropped too).
std::optional<AnyCommand> decodeCommand(const QByteArray& line);
std::optional<AnyEvent> decodeEvent(const QByteArray& line);

// The objects inside commands, on their own.
QJsonObject encode(const LockoutPage& page);
LockoutPage decodePage(const QJsonObject& object);
QJsonObject encode(const SetupStrip& strip);
SetupStrip decodeStrip(const QJsonObject& object);
QJsonObject encode(const StartCard& card);
StartCard decodeCard(const QJsonObject& object);

QString roleName(PageRole role);
std::optional<PageRole> roleFromName(const QString& name);

} // namespace ScreenProtocol
} // namespace tovin
