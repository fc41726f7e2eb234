#include "core/screen_protocol.h"

#include "core/iso_date.h"
#include "core/json_values.h"

#include <QJsonDocument>

#include <climits>
#include <utility>

namespace tovin::ScreenProtocol {

namespace {

QString kindName(LockoutPage::Kind kind) {
    switch (kind) {
    case LockoutPage::Kind::Workout:
        return QStringLiteral("workout");
    case LockoutPage::Kind::Retest:
        return QStringLiteral("retest");
    case LockoutPage::Kind::Away:
        return QStringLiteral("away");
    case LockoutPage::Kind::Coach:
        return QStringLiteral("coach");
    }
    return {};
}

LockoutPage::Kind kindFromName(const QString& name) {
    if (name == u"retest")
        return LockoutPage::Kind::Retest;
    if (name == u"away")
        return LockoutPage::Kind::Away;
    if (name == u"coach")
        return LockoutPage::Kind::Coach;
    return LockoutPage::Kind::Workout;
}

} // namespace

QJsonObject encode(const LockoutPage& page) {
    // No folder crosses the wire: the helper serves its own bundled web app and nothing else.
    QJsonObject o{{QStringLiteral("kind"), kindName(page.kind)},
                  {QStringLiteral("native"), page.native},
                  {QStringLiteral("standing"), page.standing},
                  {QStringLiteral("phrase"), page.escapePhrase},
                  {QStringLiteral("hintDelay"), page.hintDelay}};
    if (page.kind == LockoutPage::Kind::Away) {
        o.insert(u"awayLabel", page.awayLabel);
        o.insert(u"awayEndsAt", formatIsoMillis(page.awayEndsAt));
    }
    if (page.kind == LockoutPage::Kind::Coach) {
        o.insert(u"coach", page.coachWorkout);
        o.insert(u"cleanReps", page.requiredCleanReps);
    }
    return o;
}

LockoutPage decodePage(const QJsonObject& o) {
    LockoutPage page;
    page.kind = kindFromName(o.value(u"kind").toString());
    page.native = o.value(u"native").toObject();
    // Read as encode writes: the away fields only for an away page, the coach's for the coach.
    if (page.kind == LockoutPage::Kind::Away) {
        page.awayLabel = o.value(u"awayLabel").toString();
        page.awayEndsAt = parseIsoInstant(o.value(u"awayEndsAt").toString()).value_or(QDateTime());
    }
    if (page.kind == LockoutPage::Kind::Coach) {
        page.coachWorkout = o.value(u"coach").toString();
        page.requiredCleanReps = int(jsonInteger(o.value(u"cleanReps"), 0, 1000).value_or(0));
    }
    page.standing = o.value(u"standing").toString();
    page.escapePhrase = o.value(u"phrase").toString();
    page.hintDelay = o.value(u"hintDelay").toDouble(page.hintDelay);
    return page;
}

QJsonObject encode(const SetupStrip& s) {
    return {{QStringLiteral("status"), s.status},
            {QStringLiteral("standing"), s.standing},
            {QStringLiteral("paused"), s.paused},
            {QStringLiteral("loginTitle"), s.loginTitle},
            {QStringLiteral("loginOn"), s.loginOn},
            {QStringLiteral("loginBlocked"), s.loginBlocked},
            {QStringLiteral("updates"), s.updates},
            {QStringLiteral("gnomeExtension"), s.gnomeExtension}};
}

SetupStrip decodeStrip(const QJsonObject& o) {
    return {o.value(u"status").toString(), o.value(u"standing").toString(),
            o.value(u"paused").toBool(),   o.value(u"loginTitle").toString(),
            o.value(u"loginOn").toBool(),  o.value(u"loginBlocked").toBool(),
            o.value(u"updates").toBool(),  o.value(u"gnomeExtension").toBool()};
}

QJsonObject encode(const StartCard& c) {
    return {
        {QStringLiteral("phrase"), c.escapePhrase},   {QStringLiteral("valve"), c.valveMinutes},
        {QStringLiteral("standing"), c.standing},     {QStringLiteral("streak"), c.streak},
        {QStringLiteral("longest"), c.longestStreak}, {QStringLiteral("rehearsal"), c.rehearsal}};
}

StartCard decodeCard(const QJsonObject& o) {
    StartCard c;
    c.escapePhrase = o.value(u"phrase").toString();
    c.valveMinutes = int(jsonInteger(o.value(u"valve"), 0, 100000).value_or(15));
    c.standing = o.value(u"standing").toString();
    c.streak = int(jsonInteger(o.value(u"streak"), 0, INT_MAX).value_or(0));
    c.longestStreak = int(jsonInteger(o.value(u"longest"), 0, INT_MAX).value_or(0));
    c.rehearsal = o.value(u"rehearsal").toBool();
    return c;
}

QString roleName(PageRole role) {
    switch (role) {
    case PageRole::Setup:
        return QStringLiteral("setup");
    case PageRole::Prepared:
        return QStringLiteral("prepared");
    case PageRole::Lockout:
        return QStringLiteral("lockout");
    }
    return {};
}

std::optional<PageRole> roleFromName(const QString& name) {
    if (name == u"setup")
        return PageRole::Setup;
    if (name == u"prepared")
        return PageRole::Prepared;
    if (name == u"lockout")
        return PageRole::Lockout;
    return std::nullopt;
}

namespace {

// Each message's fields, both ways. `take` is false for a message that cannot be placed; a
// message with no fields needs neither.
using namespace Command;
using namespace Event;

void put(QJsonObject& o, const Prepare& m) {
    o.insert(u"page", encode(m.page));
}
bool take(const QJsonObject& o, Prepare& m) {
    m.page = decodePage(o.value(u"page").toObject());
    return true;
}

void put(QJsonObject& o, const Raise& m) {
    o.insert(u"page", encode(m.page));
    o.insert(u"rehearsal", m.rehearsal);
    o.insert(u"valve", m.valveMinutes);
}
bool take(const QJsonObject& o, Raise& m) {
    m.page = decodePage(o.value(u"page").toObject());
    m.rehearsal = o.value(u"rehearsal").toBool();
    m.valveMinutes = o.value(u"valve").toDouble(15);
    return true;
}

void put(QJsonObject& o, const Valve& m) {
    o.insert(u"now", formatIsoMillis(m.now));
}
bool take(const QJsonObject& o, Valve& m) {
    const auto now = parseIsoInstant(o.value(u"now").toString());
    m.now = now.value_or(QDateTime());
    return now.has_value();
}

void put(QJsonObject& o, const Standing& m) {
    o.insert(u"json", m.json);
}
bool take(const QJsonObject& o, Standing& m) {
    m.json = o.value(u"json").toString();
    return true;
}

void put(QJsonObject& o, const CoachDone& m) {
    o.insert(u"streak", m.streak);
}
bool take(const QJsonObject& o, CoachDone& m) {
    m.streak = int(jsonInteger(o.value(u"streak"), 0, INT_MAX).value_or(0));
    return true;
}

void put(QJsonObject& o, const OpenSetup& m) {
    o.insert(u"gen", m.generation);
    o.insert(u"native", m.native);
    o.insert(u"strip", encode(m.strip));
    o.insert(u"geometry", QString::fromLatin1(m.geometry.toBase64()));
}
bool take(const QJsonObject& o, OpenSetup& m) {
    m.generation = o.value(u"gen").toInteger();
    m.native = o.value(u"native").toObject();
    m.strip = decodeStrip(o.value(u"strip").toObject());
    m.geometry = QByteArray::fromBase64(o.value(u"geometry").toString().toLatin1());
    return true;
}

void put(QJsonObject& o, const UpdateStrip& m) {
    o.insert(u"strip", encode(m.strip));
}
bool take(const QJsonObject& o, UpdateStrip& m) {
    m.strip = decodeStrip(o.value(u"strip").toObject());
    return true;
}

void put(QJsonObject& o, const ShowStart& m) {
    o.insert(u"card", encode(m.card));
}
bool take(const QJsonObject& o, ShowStart& m) {
    m.card = decodeCard(o.value(u"card").toObject());
    return true;
}

void put(QJsonObject& o, const Hello& m) {
    o.insert(u"pid", m.pid);
}
bool take(const QJsonObject& o, Hello& m) {
    m.pid = o.value(u"pid").toInteger();
    return true;
}

void put(QJsonObject& o, const Up& m) {
    o.insert(u"up", m.up);
}
bool take(const QJsonObject& o, Up& m) {
    m.up = o.value(u"up").toBool();
    return true;
}

void put(QJsonObject& o, const Broken& m) {
    if (m.reason)
        o.insert(u"reason", toString(*m.reason));
}
bool take(const QJsonObject& o, Broken& m) {
    m.reason = reasonFromString(o.value(u"reason").toString());
    return true;
}

bool takeRole(const QJsonObject& o, PageRole& role) {
    const auto named = roleFromName(o.value(u"role").toString());
    role = named.value_or(PageRole::Setup);
    return named.has_value();
}

void put(QJsonObject& o, const PageMessage& m) {
    o.insert(u"role", roleName(m.role));
    o.insert(u"message", m.message);
}
bool take(const QJsonObject& o, PageMessage& m) {
    m.message = o.value(u"message").toObject();
    return takeRole(o, m.role);
}

void put(QJsonObject& o, const PageFailed& m) {
    o.insert(u"role", roleName(m.role));
    o.insert(u"detail", m.detail);
}
bool take(const QJsonObject& o, PageFailed& m) {
    m.detail = o.value(u"detail").toString();
    return takeRole(o, m.role);
}

void put(QJsonObject& o, const PageLoaded& m) {
    o.insert(u"role", roleName(m.role));
}
bool take(const QJsonObject& o, PageLoaded& m) {
    return takeRole(o, m.role);
}

void put(QJsonObject& o, const CoachFinished& m) {
    o.insert(u"exercise", m.exercise);
    o.insert(u"reps", m.reps);
    o.insert(u"clean", m.cleanReps);
}
bool take(const QJsonObject& o, CoachFinished& m) {
    m.exercise = o.value(u"exercise").toString();
    m.reps = o.value(u"reps").toInteger();
    m.cleanReps = o.value(u"clean").toInteger();
    return true;
}

void put(QJsonObject& o, const Action& m) {
    o.insert(u"name", m.action);
    o.insert(u"value", m.value);
}
bool take(const QJsonObject& o, Action& m) {
    m.action = o.value(u"name").toString();
    m.value = o.value(u"value").toString();
    return true;
}

void put(QJsonObject& o, const SetupState& m) {
    o.insert(u"active", m.active);
    o.insert(u"visible", m.visible);
    o.insert(u"gen", m.generation);
}
bool take(const QJsonObject& o, SetupState& m) {
    m.active = o.value(u"active").toBool();
    m.visible = o.value(u"visible").toBool();
    m.generation = o.value(u"gen").toInteger();
    return true;
}

void put(QJsonObject& o, const Note& m) {
    o.insert(u"tag", m.tag);
    o.insert(u"text", m.text);
}
bool take(const QJsonObject& o, Note& m) {
    m.tag = o.value(u"tag").toString();
    m.text = o.value(u"text").toString();
    return true;
}

template <typename Message> QByteArray encodeAs(const char* key, const Message& message) {
    QJsonObject o{{QLatin1StringView(key), QLatin1StringView(Message::name)}};
    if constexpr (requires { put(o, message); })
        put(o, message);
    return QJsonDocument(o).toJson(QJsonDocument::Compact) + '\n';
}

// Tries each alternative of the variant in turn: the one whose name the line carries reads it.
template <typename Variant, std::size_t... I>
std::optional<Variant> decodeAs(const QString& name, const QJsonObject& o,
                                std::index_sequence<I...>) {
    std::optional<Variant> result;
    const auto tryOne = [&]<typename Message>(Message message) {
        if (name != QLatin1StringView(Message::name))
            return false;
        bool placed = true;
        if constexpr (requires { take(o, message); })
            placed = take(o, message);
        if (placed)
            result = std::move(message);
        return true;
    };
    (tryOne(std::variant_alternative_t<I, Variant>{}) || ...);
    return result;
}

template <typename Variant>
std::optional<Variant> decodeLine(const char* key, const QByteArray& line) {
    QJsonParseError error{};
    const QJsonDocument doc = QJsonDocument::fromJson(line, &error);
    if (error.error != QJsonParseError::NoError || !doc.isObject())
        return std::nullopt;
    const QJsonObject o = doc.object();
    const QJsonValue name = o.value(QLatin1StringView(key));
    if (!name.isString())
        return std::nullopt;
    return decodeAs<Variant>(name.toString(), o,
                             std::make_index_sequence<std::variant_size_v<Variant>>());
}

} // namespace

QByteArray encode(const AnyCommand& command) {
    return std::visit([](const auto& m) { return encodeAs("do", m); }, command);
}

QByteArray encode(const AnyEvent& event) {
    return std::visit([](const auto& m) { return encodeAs("ev", m); }, event);
}

std::optional<AnyCommand> decodeCommand(const QByteArray& line) {
    return decodeLine<AnyCommand>("do", line);
}

std::optional<AnyEvent> decodeEvent(const QByteArray& line) {
    return decodeLine<AnyEvent>("ev", line);
}

} // namespace tovin::ScreenProtocol
