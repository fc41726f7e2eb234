#include "core/promise_record.h"

#include "core/iso_date.h"
#include "core/json_values.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTimeZone>

#include <cstring>

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
    switch (reason) {
    case PromiseRecord::Reason::Urgent:
        return QStringLiteral("Genuinely urgent");
    case PromiseRecord::Reason::DidntFeelLikeIt:
        return QStringLiteral("Didn't feel like it");
    case PromiseRecord::Reason::Stopped:
        break;
    }
    return QStringLiteral("Tovin was stopped during the lockout");
}

std::optional<PromiseRecord::Reason> reasonFromString(QStringView text) {
    for (const auto reason : PromiseRecord::allReasons() + QList{PromiseRecord::Reason::Stopped}) {
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

namespace {

// Reads the ledger exactly as encode(Pretty) writes it, byte for byte, without building a JSON
// document: a decade of promises loads in a fraction of the time. Anything else at all (another
// layout, an escape encode would not write, a number it would not print) is refused, and the
// general reader below takes it, so what this accepts is by construction what that accepts.
class CanonicalReader {
public:
    explicit CanonicalReader(const QByteArray& bytes)
        : p_(bytes.constData())
        , end_(p_ + bytes.size()) {}

    std::optional<QList<PromiseRecord>> read() {
        QList<PromiseRecord> records;
        if (literal("[]\n"))
            return p_ == end_ ? std::optional(records) : std::nullopt;
        if (!literal("[\n"))
            return std::nullopt;
        records.reserve((end_ - p_) / 150 + 1);
        do {
            auto record = readRecord();
            if (!record)
                return std::nullopt;
            records.append(std::move(*record));
        } while (literal(",\n"));
        if (!literal("\n]\n") || p_ != end_)
            return std::nullopt;
        return records;
    }

private:
    bool literal(const char* text) {
        const size_t n = std::strlen(text);
        if (size_t(end_ - p_) < n || std::memcmp(p_, text, n) != 0)
            return false;
        p_ += n;
        return true;
    }

    std::optional<PromiseRecord> readRecord() {
        PromiseRecord r;
        if (!literal("  {\n    \"date\": \"") || !isoDate(r.date) ||
            !literal("\",\n    \"outcome\": "))
            return std::nullopt;
        if (literal("\"tovin\""))
            r.outcome = PromiseRecord::Outcome::Tovin;
        else if (literal("\"broken\""))
            r.outcome = PromiseRecord::Outcome::Broken;
        else
            return std::nullopt;
        if (!literal(",\n    \"exercise\": ") || !string(r.exercise) ||
            !literal(",\n    \"reps\": ") || !integer(r.reps) ||
            !literal(",\n    \"cleanReps\": ") || !integer(r.cleanReps))
            return std::nullopt;
        // Years of records name the same few workouts: share one string for each run of them.
        if (r.exercise == lastExercise_)
            r.exercise = lastExercise_;
        else
            lastExercise_ = r.exercise;
        if (literal(",\n    \"reason\": ")) {
            QString why;
            if (!string(why))
                return std::nullopt;
            r.reason = reasonFromString(why);
            if (!r.reason)
                return std::nullopt;
        }
        if (literal(",\n    \"attested\": ")) {
            if (literal("true"))
                r.attested = true;
            else if (literal("false"))
                r.attested = false;
            else
                return std::nullopt;
        }
        if (!literal("\n  }"))
            return std::nullopt;
        return r;
    }

    // Only what appendString writes: raw UTF-8 (valid, no control characters) and the escapes
    // \" \\ \n \r \t and \u00xx (lower-case hex) for the other control characters.
    bool string(QString& out) {
        if (p_ == end_ || *p_ != '"')
            return false;
        ++p_;
        QByteArray utf8;
        const char* run = p_;
        for (;;) {
            if (p_ == end_)
                return false;
            const unsigned char c = static_cast<unsigned char>(*p_);
            if (c == '"')
                break;
            if (c < 0x20)
                return false;
            if (c != '\\') {
                ++p_;
                continue;
            }
            utf8.append(run, p_ - run);
            if (end_ - p_ < 2)
                return false;
            switch (p_[1]) {
            case '"':
                utf8 += '"';
                break;
            case '\\':
                utf8 += '\\';
                break;
            case 'n':
                utf8 += '\n';
                break;
            case 'r':
                utf8 += '\r';
                break;
            case 't':
                utf8 += '\t';
                break;
            case 'u': {
                if (end_ - p_ < 6 || p_[2] != '0' || p_[3] != '0')
                    return false;
                const int hi = hexDigit(p_[4]), lo = hexDigit(p_[5]);
                const int code = hi * 16 + lo;
                if (hi < 0 || lo < 0 || code >= 0x20 || code == '\n' || code == '\r' ||
                    code == '\t')
                    return false;
                utf8 += char(code);
                p_ += 4;
                break;
            }
            default:
                return false;
            }
            p_ += 2;
            run = p_;
        }
        utf8.append(run, p_ - run);
        ++p_;
        if (!QUtf8StringView(utf8).isValidUtf8())
            return false;
        out = QString::fromUtf8(utf8);
        return true;
    }

    static int hexDigit(char c) {
        if (c >= '0' && c <= '9')
            return c - '0';
        if (c >= 'a' && c <= 'f')
            return c - 'a' + 10;
        return -1;
    }

    // As QByteArray::number prints it, and no wider than a double holds exactly.
    bool integer(qint64& out) {
        const char* start = p_;
        const bool negative = p_ != end_ && *p_ == '-';
        if (negative)
            ++p_;
        const char* digits = p_;
        qint64 value = 0;
        while (p_ != end_ && *p_ >= '0' && *p_ <= '9' && p_ - digits < 15)
            value = value * 10 + (*p_++ - '0');
        const qsizetype n = p_ - digits;
        if (n == 0 || (n > 1 && *digits == '0') || (negative && value == 0) ||
            (p_ != end_ && *p_ >= '0' && *p_ <= '9')) {
            p_ = start;
            return false;
        }
        out = negative ? -value : value;
        return true;
    }

    // "YYYY-MM-DDTHH:MM:SSZ", as formatIsoSeconds writes a UTC instant (the closing quote is
    // the caller's).
    bool isoDate(QDateTime& out) {
        if (end_ - p_ < 20 || p_[4] != '-' || p_[7] != '-' || p_[10] != 'T' || p_[13] != ':' ||
            p_[16] != ':' || p_[19] != 'Z')
            return false;
        auto number = [this](int at, int count) {
            int value = 0;
            for (int i = at; i < at + count; ++i) {
                if (p_[i] < '0' || p_[i] > '9')
                    return -1;
                value = value * 10 + (p_[i] - '0');
            }
            return value;
        };
        const int year = number(0, 4), month = number(5, 2), day = number(8, 2);
        const int hour = number(11, 2), minute = number(14, 2), second = number(17, 2);
        if (year < 1 || month < 0 || day < 0 || hour < 0 || hour > 23 || minute < 0 ||
            minute > 59 || second < 0 || second > 59)
            return false;
        const QDate date(year, month, day);
        if (!date.isValid())
            return false;
        constexpr qint64 unixEpochJulianDay = 2440588;
        out = QDateTime::fromSecsSinceEpoch((date.toJulianDay() - unixEpochJulianDay) * 86400 +
                                                hour * 3600 + minute * 60 + second,
                                            QTimeZone::utc());
        p_ += 20;
        return true;
    }

    const char* p_;
    const char* end_;
    QString lastExercise_;
};

} // namespace

std::optional<QList<PromiseRecord>> decodeCanonical(const QByteArray& bytes) {
    return CanonicalReader(bytes).read();
}

std::optional<QList<PromiseRecord>> decode(const QByteArray& bytes) {
    if (auto records = decodeCanonical(bytes))
        return records;
    return decodeGeneral(bytes);
}

void appendPretty(QByteArray& file, const PromiseRecord& record) {
    if (file.endsWith("\n]\n")) {
        file.chop(3);
        file += ",\n";
    } else {
        file = "[\n";
    }
    appendRecord(file, record, Layout::Pretty);
    file += "\n]\n";
}

std::optional<QList<PromiseRecord>> decodeGeneral(const QByteArray& bytes) {
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
