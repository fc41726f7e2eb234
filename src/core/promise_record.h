#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QList>
#include <QString>
#include <QStringView>

#include <optional>

namespace tovin {

// One ended promise: honoured ("tovin") or broken, with what was asked and what was done.
struct PromiseRecord {
    enum class Outcome { Tovin, Broken };
    // The raw value is also the display text: what is stored is what the person reads. The
    // person chooses between the first two; Stopped is written for a lockout cut short from
    // outside (Tovin or its screen helper killed, the machine restarted under it).
    enum class Reason { Urgent, DidntFeelLikeIt, Stopped };

    QDateTime date; // whole seconds, UTC
    Outcome outcome = Outcome::Tovin;
    QString exercise;
    qint64 reps = 0;
    qint64 cleanReps = 0;
    std::optional<Reason> reason; // only for a broken promise
    std::optional<bool> attested; // taken on the person's word instead of counted

    // The reasons the break warning offers, in its order.
    static QList<Reason> allReasons() { return {Reason::Urgent, Reason::DidntFeelLikeIt}; }

    bool operator==(const PromiseRecord&) const = default;
};

QString toString(PromiseRecord::Outcome outcome);
std::optional<PromiseRecord::Outcome> outcomeFromString(QStringView text);
QString toString(PromiseRecord::Reason reason);
std::optional<PromiseRecord::Reason> reasonFromString(QStringView text);

// The ledger's JSON form: an array of objects with keys in field order (date, outcome,
// exercise, reps, cleanReps, then reason and attested only when present), dates as whole-second
// UTC ISO 8601 text. QJsonObject sorts its keys, so this is written by hand.
namespace PromiseJson {

enum class Layout { Pretty, Compact };

QByteArray encode(const QList<PromiseRecord>& records, Layout layout);

// The records, or none when the bytes are not such an array or any one record is bad (a missing
// required key, an unknown outcome or reason, a date that is not whole-second ISO 8601).
std::optional<QList<PromiseRecord>> decode(const QByteArray& bytes);
// decode() tries these in turn: bytes exactly as encode(Pretty) writes them, read without a JSON
// document (fast), and anything else through a general JSON parser. Both answer alike for any
// bytes the first accepts.
std::optional<QList<PromiseRecord>> decodeCanonical(const QByteArray& bytes);
std::optional<QList<PromiseRecord>> decodeGeneral(const QByteArray& bytes);

// One more record on bytes that encode(Pretty) wrote (or that decodeCanonical accepted), without
// encoding the others again.
void appendPretty(QByteArray& file, const PromiseRecord& record);

} // namespace PromiseJson
} // namespace tovin
