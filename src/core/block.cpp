#include "core/block.h"

namespace tovin {

namespace {

// A base-10 integer with an optional sign and nothing else (no spaces). Values far outside any
// valid hour or minute are reported as out of range rather than overflowing.
std::optional<int> parseInteger(QStringView text) {
    qsizetype i = 0;
    bool negative = false;
    if (i < text.size() && (text[i] == u'+' || text[i] == u'-')) {
        negative = text[i] == u'-';
        ++i;
    }
    if (i == text.size())
        return std::nullopt;
    int value = 0;
    for (; i < text.size(); ++i) {
        const QChar c = text[i];
        if (c < u'0' || c > u'9')
            return std::nullopt;
        value = std::min(value * 10 + (c.unicode() - u'0'), 1'000'000);
    }
    return negative ? -value : value;
}

} // namespace

std::optional<int> parseMinuteOfDay(QStringView at) {
    QStringView pieces[2];
    int count = 0;
    for (const QStringView piece : at.tokenize(u':', Qt::SkipEmptyParts)) {
        if (count == 2)
            return std::nullopt;
        pieces[count++] = piece;
    }
    if (count != 2)
        return std::nullopt;
    const auto hour = parseInteger(pieces[0]);
    const auto minute = parseInteger(pieces[1]);
    if (!hour || !minute || *hour < 0 || *hour > 23 || *minute < 0 || *minute > 59)
        return std::nullopt;
    return *hour * 60 + *minute;
}

std::optional<int> Block::minuteOfDay() const {
    return parseMinuteOfDay(at);
}

QString Block::key() const {
    return at + u'|' + label + u'|' + toString(kind);
}

bool Block::runsOn(int weekday) const {
    return !days || days->contains(weekday);
}

QString toString(Block::Kind kind) {
    switch (kind) {
    case Block::Kind::Workout:
        return QStringLiteral("workout");
    case Block::Kind::Away:
        return QStringLiteral("away");
    case Block::Kind::Retest:
        return QStringLiteral("retest");
    }
    return {};
}

std::optional<Block::Kind> blockKindFromString(QStringView text) {
    if (text == u"workout")
        return Block::Kind::Workout;
    if (text == u"away")
        return Block::Kind::Away;
    if (text == u"retest")
        return Block::Kind::Retest;
    return std::nullopt;
}

} // namespace tovin
