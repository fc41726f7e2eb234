#include "core/iso_date.h"

#include <QTimeZone>

namespace tovin {

namespace {

// Reads `count` ASCII digits at `pos`; -1 when any is not a digit.
int digits(QStringView text, qsizetype pos, int count) {
    int value = 0;
    for (int i = 0; i < count; ++i) {
        const QChar c = text[pos + i];
        if (c < u'0' || c > u'9')
            return -1;
        value = value * 10 + (c.unicode() - u'0');
    }
    return value;
}

// Offset in seconds for "Z" or "±HH:MM" filling the whole of `zone`; none otherwise.
std::optional<int> zoneOffset(QStringView zone) {
    if (zone == u"Z")
        return 0;
    if (zone.size() != 6 || (zone[0] != u'+' && zone[0] != u'-') || zone[3] != u':')
        return std::nullopt;
    const int hours = digits(zone, 1, 2);
    const int minutes = digits(zone, 4, 2);
    if (hours < 0 || hours > 23 || minutes < 0 || minutes > 59)
        return std::nullopt;
    const int seconds = hours * 3600 + minutes * 60;
    return zone[0] == u'-' ? -seconds : seconds;
}

} // namespace

QString formatIsoSeconds(const QDateTime& instant) {
    return instant.toUTC().toString(u"yyyy-MM-ddTHH:mm:ss'Z'");
}

QString formatIsoMillis(const QDateTime& instant) {
    return instant.toUTC().toString(u"yyyy-MM-ddTHH:mm:ss.zzz'Z'");
}

std::optional<QDateTime> parseIsoSeconds(QStringView text) {
    if (text.size() < 20 || text[4] != u'-' || text[7] != u'-' || text[10] != u'T' ||
        text[13] != u':' || text[16] != u':')
        return std::nullopt;
    const int year = digits(text, 0, 4);
    const int month = digits(text, 5, 2);
    const int day = digits(text, 8, 2);
    const int hour = digits(text, 11, 2);
    const int minute = digits(text, 14, 2);
    const int second = digits(text, 17, 2);
    const auto offset = zoneOffset(text.mid(19));
    if (year < 0 || month < 0 || day < 0 || hour < 0 || minute < 0 || second < 0 || !offset)
        return std::nullopt;
    const QDate date(year, month, day);
    const QTime time(hour, minute, second);
    if (!date.isValid() || !time.isValid())
        return std::nullopt;
    // An offset can carry the instant out of the four-digit years (9999-12-31T23:59:59-01:00);
    // such a date could not be written back in this form, so it is refused here.
    QDateTime instant = QDateTime(date, time, QTimeZone::utc()).addSecs(-*offset);
    if (instant.date().year() < 1 || instant.date().year() > 9999)
        return std::nullopt;
    return instant;
}

std::optional<QDateTime> parseIsoInstant(QStringView text) {
    if (const auto whole = parseIsoSeconds(text))
        return whole;
    // Fractional seconds: cut them off and read the rest strictly, then add them back.
    const qsizetype dot = text.indexOf(u'.');
    if (dot != 19)
        return std::nullopt;
    qsizetype end = dot + 1;
    while (end < text.size() && text[end] >= u'0' && text[end] <= u'9')
        ++end;
    const qsizetype fractionDigits = end - dot - 1;
    if (fractionDigits < 1 || fractionDigits > 9)
        return std::nullopt;
    const QString rebuilt = text.first(dot).toString() + text.mid(end).toString();
    auto whole = parseIsoSeconds(rebuilt);
    if (!whole)
        return std::nullopt;
    int millis = digits(text, dot + 1, int(std::min<qsizetype>(fractionDigits, 3)));
    for (qsizetype i = fractionDigits; i < 3; ++i)
        millis *= 10;
    return whole->addMSecs(millis);
}

} // namespace tovin
