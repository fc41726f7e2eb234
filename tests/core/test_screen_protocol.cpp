#include "core/iso_date.h"
#include "core/screen_protocol.h"

#include <QJsonDocument>
#include <QTimeZone>

#include <gtest/gtest.h>

using namespace tovin;
using namespace tovin::ScreenProtocol;

namespace {

QJsonObject object(const QByteArray& line) {
    return QJsonDocument::fromJson(line).object();
}

// One line, and decoding it gives a message that writes exactly that line again.
template <typename Message, typename Decode>
Message through(const Message& message, Decode decode) {
    const QByteArray line = encode(message);
    EXPECT_TRUE(line.endsWith('\n') && line.count('\n') == 1) << line.constData();
    const auto again = decode(line);
    EXPECT_TRUE(again) << line.constData();
    if (!again)
        return message;
    EXPECT_EQ(again->index(), message.index()) << line.constData();
    EXPECT_EQ(encode(*again), line);
    return *again;
}

} // namespace

// Every command and event, with text that could break a line-framed protocol: each survives
// the trip whole, with its documented name and field names on the wire.
TEST(ScreenProtocol, EveryMessageCrossesWholeUnderItsDocumentedName) {
    const QString hostile = QStringLiteral("line\nbreak \"quoted\" {\"do\":\"quit\"}\n");
    LockoutPage page;
    page.kind = LockoutPage::Kind::Away;
    page.webRoot = QStringLiteral("/home/someone/elsewhere");
    page.awayLabel = hostile;
    page.awayEndsAt = QDateTime::fromMSecsSinceEpoch(1772442900000, QTimeZone::utc());
    page.standing = hostile;
    page.escapePhrase = QStringLiteral("bramble");
    page.hintDelay = 7.5;
    const SetupStrip strip{
        hostile, QStringLiteral("2 kept"), true, QStringLiteral("Open at Login"), true, false, true,
        true};
    const QDateTime now = page.awayEndsAt;

    const std::vector<std::pair<AnyCommand, const char*>> commands{
        {Command::Prepare{page}, "prepare"},
        {Command::Drop{}, "drop"},
        {Command::Raise{page, true, 12}, "raise"},
        {Command::Lower{}, "lower"},
        {Command::Valve{now}, "valve"},
        {Command::Standing{hostile}, "standing"},
        {Command::CoachDone{4}, "coachDone"},
        {Command::OpenSetup{7, {{QStringLiteral("mode"), hostile}}, strip, "\x01geometry\n"},
         "setup"},
        {Command::UpdateStrip{strip}, "strip"},
        {Command::HideSetup{}, "hideSetup"},
        {Command::ShowStart{{QStringLiteral("lark"), 15, hostile, 3, 9, true}}, "start"},
        {Command::Quit{}, "quit"},
    };
    for (const auto& [command, name] : commands) {
        EXPECT_EQ(object(encode(command)).value(u"do").toString(), QLatin1StringView(name));
        through(command, decodeCommand);
    }

    // The fields the helper shows, and the one number its setup reports answer.
    const auto raise = std::get<Command::Raise>(through(commands[2].first, decodeCommand));
    EXPECT_TRUE(raise.page.webRoot.isEmpty()) << "no folder crosses the wire";
    EXPECT_EQ(raise.page.escapePhrase, u"bramble");
    EXPECT_EQ(raise.page.hintDelay, 7.5);
    EXPECT_EQ(raise.page.standing, hostile);
    EXPECT_EQ(raise.page.awayEndsAt, page.awayEndsAt);
    EXPECT_TRUE(raise.rehearsal);
    EXPECT_EQ(raise.valveMinutes, 12);
    const auto setup = std::get<Command::OpenSetup>(through(commands[7].first, decodeCommand));
    EXPECT_EQ(setup.generation, 7);
    EXPECT_EQ(setup.geometry, QByteArray("\x01geometry\n"));
    EXPECT_EQ(setup.strip.status, hostile);
    EXPECT_TRUE(setup.strip.gnomeExtension);
    EXPECT_EQ(object(encode(commands[7].first)).value(u"gen").toInteger(), 7);

    const std::vector<std::pair<AnyEvent, const char*>> events{
        {Event::Hello{4211}, "hello"},
        {Event::Alive{}, "alive"},
        {Event::Up{true}, "up"},
        {Event::Broken{PromiseRecord::Reason::Urgent}, "broken"},
        {Event::Broken{}, "broken"},
        {Event::TimedOut{}, "timedOut"},
        {Event::Panicked{}, "panicked"},
        {Event::Yielded{}, "yielded"},
        {Event::QuitAsked{}, "quitAsked"},
        {Event::PageMessage{PageRole::Lockout, {{QStringLiteral("type"), hostile}}}, "page"},
        {Event::PageFailed{PageRole::Prepared, hostile}, "failed"},
        {Event::PageLoaded{PageRole::Setup}, "loaded"},
        {Event::CoachFinished{hostile, 12, 10}, "coachFinished"},
        {Event::Action{QStringLiteral("setupGeometry"), hostile}, "action"},
        {Event::SetupState{true, true, 7}, "setup"},
        {Event::Note{QStringLiteral("shield"), hostile}, "note"},
    };
    for (const auto& [event, name] : events) {
        EXPECT_EQ(object(encode(event)).value(u"ev").toString(), QLatin1StringView(name));
        through(event, decodeEvent);
    }
    EXPECT_EQ(std::get<Event::Broken>(through(events[3].first, decodeEvent)).reason,
              PromiseRecord::Reason::Urgent);
    EXPECT_EQ(std::get<Event::SetupState>(through(events[14].first, decodeEvent)).generation, 7);
}

// What a newer, older or hostile peer may send: nothing crashes, nothing unplaceable is acted
// on, and a field of the wrong type reads as its default.
TEST(ScreenProtocol, UnknownOrMalformedLinesAreDroppedAndWrongFieldsReadAsDefaults) {
    for (const char* line : {"", "not json", "[1,2]", R"({"do":"explode"})", R"({"do":5})",
                             R"({"ev":"lower"})", R"({"do":"valve","now":"yesterday"})"})
        EXPECT_FALSE(decodeCommand(line)) << line;
    for (const char* line : {R"({"do":"lower"})", R"({"ev":"page","role":"admin"})",
                             R"({"ev":"loaded"})", R"({"ev":"hello"}garbage)"})
        EXPECT_FALSE(decodeEvent(line)) << line;

    const auto raise = decodeCommand(
        R"({"do":"raise","page":{"kind":"coach","cleanReps":1e9,"hintDelay":"soon"},"valve":"x"})");
    ASSERT_TRUE(raise);
    const auto& r = std::get<Command::Raise>(*raise);
    EXPECT_EQ(r.page.kind, LockoutPage::Kind::Coach);
    EXPECT_EQ(r.page.requiredCleanReps, 0);
    EXPECT_EQ(r.page.hintDelay, 25);
    EXPECT_EQ(r.valveMinutes, 15);
    const auto setup = decodeEvent(R"({"ev":"setup","active":"yes","gen":2.5})");
    ASSERT_TRUE(setup);
    EXPECT_FALSE(std::get<Event::SetupState>(*setup).active);
    EXPECT_EQ(std::get<Event::SetupState>(*setup).generation, 0);
    EXPECT_EQ(std::get<Event::Broken>(*decodeEvent(R"({"ev":"broken","reason":"bored"})")).reason,
              std::nullopt);
}
