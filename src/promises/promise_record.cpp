#include "promises/promise_record.h"

#include "core/iso_date.h"
#include "core/json_values.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace tovin {

QString toString(PromiseRecord::Outcome outcome) {
    return outcome == PromiseRecord::Outcome::Tovin ? QStringLiteral("tovin")
                                                    : QStringLiteral("broken");
}

std::optional<PromiseRecord::Outcome> outcomeFromString(QStringView text) {
    if (text == u"tovin")
        return PromiseRecord::Outcome::Tovin;
    if (text == u"broken")
        return PromiseRecord::Outcome::Broken;
    return std::nullopt;
}

QString toString(PromiseRecord::Reason reason) {
    return reason == PromiseRecord::Reason::Urgent ? QStringLiteral("Genuinely urgent")
                                                   : QStringLiteral("Didn't feel like it");
}

std::optional<PromiseRecord::Reason> reasonFromString(QStringView text) {
    for (const auto reason : PromiseRecord::allReasons()) {
        if (text == toString(reason))
            return reason;
    }
    return std::nullopt;
}

namespace PromiseJson {

namespace {

void appendUtf8(QByteArray& out, char32_t c) {
    if (c < 0x80) {
        out += char(c);
    } else if (c < 0x800) {
        out += char(0xC0 | (c >> 6));
        out += char(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        out += char(0xE0 | (c >> 12));
        out += char(0x80 | ((c >> 6) & 0x3F));
        out += char(0x80 | (c & 0x3F));
    } else {
        out += char(0xF0 | (c >> 18));
        out += char(0x80 | ((c >> 12) & 0x3F));
        out += char(0x80 | ((c >> 6) & 0x3F));
        out += char(0x80 | (c & 0x3F));
    }
}

// A JSON string literal in UTF-8. A lone surrogate (text can carry one in from a hostile page)
// becomes U+FFFD, so the output is always valid UTF-8.
void appendString(QByteArray& out, const QString& text) {
    static constexpr char hex[] = "0123456789abcdef";
    out += '"';
    const qsizetype n = text.size();
    for (qsizetype i = 0; i < n; ++i) {
        char32_t c = text[i].unicode();
        if (QChar::isHighSurrogate(c) && i + 1 < n && text[i + 1].isLowSurrogate())
            c = QChar::surrogateToUcs4(char16_t(c), text[++i].unicode());
        else if (QChar::isSurrogate(c))
            c = 0xFFFD;
        switch (c) {
        case U'"':
            out += "\\\"";
            break;
        case U'\\':
            out += "\\\\";
            break;
        case U'\n':
            out += "\\n";
            break;
        case U'\r':
            out += "\\r";
            break;
        case U'\t':
            out += "\\t";
            break;
        default:
            if (c < 0x20) {
                out += "\\u00";
                out += hex[c >> 4];
                out += hex[c & 0xf];
            } else {
                appendUtf8(out, c);
            }
        }
    }
    out += '"';
}

void appendRecord(QByteArray& out, const PromiseRecord& r, Layout layout) {
    const bool pretty = layout == Layout::Pretty;
    const char* open = pretty ? "  {\n    " : "{";
    const char* next = pretty ? ",\n    " : ",";
    const char* colon = pretty ? ": " : ":";
    bool first = true;
    auto key = [&](const char* name) {
        out += first ? open : next;
        first = false;
        out += '"';
        out += name;
        out += '"';
        out += colon;
    };
    key("date");
    appendString(out, formatIsoSeconds(r.date));
    key("outcome");
    appendString(out, toString(r.outcome));
    key("exercise");
    appendString(out, r.exercise);
    key("reps");
    out += QByteArray::number(r.reps);
    key("cleanReps");
    out += QByteArray::number(r.cleanReps);
    if (r.reason) {
        key("reason");
        appendString(out, toString(*r.reason));
    }
    if (r.attested) {
        key("attested");
        out += *r.attested ? "true" : "false";
    }
    out += pretty ? "\n  }" : "}";
}

std::optional<PromiseRecord> decodeRecord(const QJsonValue& value) {
    if (!value.isObject())
        return std::nullopt;
    const QJsonObject o = value.toObject();
    const QJsonValue date = o.value(u"date");
    const QJsonValue outcome = o.value(u"outcome");
    const QJsonValue exercise = o.value(u"exercise");
    if (!date.isString() || !outcome.isString() || !exercise.isString())
        return std::nullopt;

    PromiseRecord r;
    const auto when = parseIsoSeconds(date.toString());
    const auto result = outcomeFromString(outcome.toString());
    const auto reps = jsonInteger(o.value(u"reps"));
    const auto cleanReps = jsonInteger(o.value(u"cleanReps"));
    if (!when || !result || !reps || !cleanReps)
        return std::nullopt;
    r.date = *when;
    r.outcome = *result;
    r.exercise = exercise.toString();
    r.reps = *reps;
    r.cleanReps = *cleanReps;

    const QJsonValue reason = o.value(u"reason");
    if (!reason.isUndefined() && !reason.isNull()) {
        const auto why = reason.isString() ? reasonFromString(reason.toString()) : std::nullopt;
        if (!why)
            return std::nullopt;
        r.reason = *why;
    }
    const QJsonValue attested = o.value(u"attested");
    if (!attested.isUndefined() && !attested.isNull()) {
        if (!attested.isBool())
            return std::nullopt;
        r.attested = attested.toBool();
    }
    return r;
}

} // namespace

QByteArray encode(const QList<PromiseRecord>& records, Layout layout) {
    const bool pretty = layout == Layout::Pretty;
    QByteArray out;
    out.reserve(records.size() * 160 + 8);
    out += '[';
    for (qsizetype i = 0; i < records.size(); ++i) {
        if (i > 0)
            out += ',';
        if (pretty)
            out += '\n';
        appendRecord(out, records[i], layout);
    }
    if (pretty)
        out += records.isEmpty() ? "]\n" : "\n]\n";
    else
        out += ']';
    return out;
}

std::optional<QList<PromiseRecord>> decode(const QByteArray& bytes) {
    QJsonParseError error{};
    const QJsonDocument doc = QJsonDocument::fromJson(bytes, &error);
    if (error.error != QJsonParseError::NoError || !doc.isArray())
        return std::nullopt;
    QList<PromiseRecord> records;
    const QJsonArray array = doc.array();
    records.reserve(array.size());
    for (const QJsonValue item : array) {
        auto record = decodeRecord(item);
        if (!record)
            return std::nullopt;
        records.append(std::move(*record));
    }
    return records;
}

} // namespace PromiseJson
} // namespace tovin
