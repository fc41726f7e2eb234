// Any bytes on the line between the resident and the screen helper, in either direction: read
// line by line as each end reads its socket, every line is a message or nothing, never a crash;
// what each end decodes from it (a page, the setup strip, the start card, a role, a reason, an
// instant) encodes back to a message that decodes to the same values; and every message the
// codec writes is exactly one line that parses back to itself, so no text a page or a person
// typed can split a message in two or smuggle a second one onto the wire.
#include "core/iso_date.h"
#include "screens/screen_protocol.h"

#include <cstdint>
#include <cstdlib>

using namespace tovin;

namespace {

void require(bool holds) {
    if (!holds)
        std::abort();
}

void framedAlike(const QJsonObject& message) {
    const QByteArray line = ScreenProtocol::line(message);
    require(line.endsWith('\n') && line.count('\n') == 1);
    require(ScreenProtocol::parse(line) == message);
}

bool samePage(const LockoutPage& a, const LockoutPage& b) {
    return a.kind == b.kind && a.webRoot == b.webRoot && a.native == b.native &&
           a.awayLabel == b.awayLabel && a.awayEndsAt == b.awayEndsAt &&
           a.coachWorkout == b.coachWorkout && a.requiredCleanReps == b.requiredCleanReps &&
           a.standing == b.standing;
}

// What the helper takes from a command.
void asCommand(const QJsonObject& c) {
    using namespace ScreenProtocol;
    const QJsonObject pageObject = c.value(u"page").toObject();
    const LockoutPage page = decodePage(pageObject);
    require(page.webRoot.isEmpty()); // no folder ever crosses the wire
    const QJsonObject pageAgain = encode(page);
    require(samePage(decodePage(pageAgain), page));
    framedAlike(pageAgain);

    const SetupStrip strip = decodeStrip(c.value(u"strip").toObject());
    const SetupStrip stripAgain = decodeStrip(encode(strip));
    require(stripAgain.status == strip.status && stripAgain.standing == strip.standing &&
            stripAgain.paused == strip.paused && stripAgain.loginTitle == strip.loginTitle &&
            stripAgain.loginOn == strip.loginOn && stripAgain.loginBlocked == strip.loginBlocked &&
            stripAgain.updates == strip.updates);

    const StartCard card = decodeCard(c.value(u"card").toObject());
    const StartCard cardAgain = decodeCard(encode(card));
    require(cardAgain.escapePhrase == card.escapePhrase &&
            cardAgain.valveMinutes == card.valveMinutes && cardAgain.standing == card.standing &&
            cardAgain.streak == card.streak && cardAgain.longestStreak == card.longestStreak &&
            cardAgain.rehearsal == card.rehearsal);

    if (const auto now = parseIsoInstant(c.value(u"now").toString()))
        require(parseIsoInstant(formatIsoMillis(*now)) == now);
}

// What the resident takes from an event.
void asEvent(const QJsonObject& e) {
    using namespace ScreenProtocol;
    if (const auto role = roleFromName(e.value(u"role").toString()))
        require(roleFromName(roleName(*role)) == role);
    if (const auto reason = reasonFromString(e.value(u"reason").toString()))
        require(reasonFromString(toString(*reason)) == reason);
    framedAlike({{QStringLiteral("ev"), QStringLiteral("note")},
                 {QStringLiteral("tag"), e.value(u"tag").toString()},
                 {QStringLiteral("text"), e.value(u"text").toString()}});
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QByteArray bytes(reinterpret_cast<const char*>(data), qsizetype(size));
    for (const QByteArray& piece : bytes.split('\n')) {
        const auto message = ScreenProtocol::parse(piece + '\n');
        if (!message)
            continue;
        framedAlike(*message);
        asCommand(*message);
        asEvent(*message);
    }
    return 0;
}
