#include "screens/screen_protocol.h"

#include "core/iso_date.h"
#include "core/json_values.h"

#include <QJsonDocument>

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

QByteArray line(const QJsonObject& message) {
    return QJsonDocument(message).toJson(QJsonDocument::Compact) + '\n';
}

std::optional<QJsonObject> parse(const QByteArray& line) {
    QJsonParseError error{};
    const QJsonDocument doc = QJsonDocument::fromJson(line, &error);
    if (error.error != QJsonParseError::NoError || !doc.isObject())
        return std::nullopt;
    return doc.object();
}

QJsonObject encode(const LockoutPage& page) {
    // No folder crosses the wire: the helper serves its own bundled web app and nothing else.
    QJsonObject o{{QStringLiteral("kind"), kindName(page.kind)},
                  {QStringLiteral("native"), page.native},
                  {QStringLiteral("standing"), page.standing}};
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
    return page;
}

QJsonObject encode(const SetupStrip& s) {
    return {
        {QStringLiteral("status"), s.status},   {QStringLiteral("standing"), s.standing},
        {QStringLiteral("paused"), s.paused},   {QStringLiteral("loginTitle"), s.loginTitle},
        {QStringLiteral("loginOn"), s.loginOn}, {QStringLiteral("loginBlocked"), s.loginBlocked},
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
    return {{QStringLiteral("phrase"), c.escapePhrase}, {QStringLiteral("valve"), c.valveMinutes},         {QStringLiteral("standing"), c.standing},
            {QStringLiteral("streak"), c.streak},       {QStringLiteral("longest"), c.longestStreak},      {QStringLiteral("rehearsal"), c.rehearsal}};
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

} // namespace tovin::ScreenProtocol
