#pragma once

#include "screens/screens.h"

#include <QByteArray>
#include <QJsonObject>

#include <optional>

namespace tovin {

// The wire between the resident and the screen helper: one compact JSON object per line, over a
// socket pair the resident makes and the helper inherits: no name, nobody else on it. The resident
// sends commands ("do"), the helper sends events ("ev"). Unknown commands and events are ignored,
// so either side may be newer.
//
// Commands, resident → helper:
//   {"do":"prepare","page":PAGE}          build a lockout's page behind its countdown
//   {"do":"drop"}                         drop the prepared page
//   {"do":"raise","page":PAGE,"rehearsal":bool,"valve":minutes}
//   {"do":"lower"}
//   {"do":"valve","now":ISO}              the tick's reminder of the safety valve
//   {"do":"standing","json":TEXT}         the new standing, for the lockout's page
//   {"do":"coachDone","streak":n}
//   {"do":"setup","gen":n,"native":{…},"strip":STRIP,"geometry":BASE64}
//   {"do":"strip","strip":STRIP}
//   {"do":"hideSetup"}
//   {"do":"start","card":CARD}
//   {"do":"quit"}                         nothing shows any more: exit
// Events, helper → resident:
//   {"ev":"hello","pid":n}                once, first
//   {"ev":"alive"}                        every second: the helper's event loop runs
//   {"ev":"up","up":bool}                 the shield covers every display, or is gone
//   {"ev":"broken","reason":TEXT?}  {"ev":"timedOut"}  {"ev":"panicked"}  {"ev":"yielded"}
//   {"ev":"quitAsked"}
//   {"ev":"page","role":ROLE,"message":{…}}   a page's bridge message, applied by the resident
//   {"ev":"failed","role":ROLE,"detail":TEXT}
//   {"ev":"loaded","role":ROLE}
//   {"ev":"coachFinished","exercise":TEXT,"reps":n,"clean":n}
//   {"ev":"action","name":TEXT,"value":TEXT}
//   {"ev":"setup","active":bool,"visible":bool,"gen":n}   about the opening numbered n
//   {"ev":"note","tag":TEXT,"text":TEXT}  a journal line, written by the resident
// ROLE is "setup", "prepared" or "lockout"; PAGE, STRIP and CARD are the objects below. No
// folder is ever named: the helper serves only the web app bundled beside it.
namespace ScreenProtocol {

QByteArray line(const QJsonObject& message);
// One received line; none for anything that is not a JSON object.
std::optional<QJsonObject> parse(const QByteArray& line);

QJsonObject encode(const LockoutPage& page);
LockoutPage decodePage(const QJsonObject& object);
QJsonObject encode(const SetupStrip& strip);
SetupStrip decodeStrip(const QJsonObject& object);
QJsonObject encode(const StartCard& card);
StartCard decodeCard(const QJsonObject& object);

QString roleName(PageRole role);
// None for anything but the three names: an event with a role it cannot place is dropped.
std::optional<PageRole> roleFromName(const QString& name);

} // namespace ScreenProtocol
} // namespace tovin
