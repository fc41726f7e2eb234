#include "resident/records/schedule_store.h"

#include "core/atomic_file.h"
#include "core/json_values.h"
#include "core/paths.h"
#include "core/unreadable_copy.h"
#include "resident/records/save_failures.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>
#include <climits>

namespace tovin {

namespace {

// A schedule is a few hundred bytes; anything this large is not a schedule.
constexpr qint64 maxScheduleBytes = 8 * 1024 * 1024;

std::optional<Block> decodeBlock(const QJsonValue& value) {
    if (!value.isObject())
        return std::nullopt;
    const QJsonObject o = value.toObject();
    const QJsonValue at = o.value(u"at");
    const QJsonValue label = o.value(u"label");
    const QJsonValue kind = o.value(u"kind");
    if (!at.isString() || !label.isString() || !kind.isString())
        return std::nullopt;
    Block block;
    block.at = at.toString();
    block.label = label.toString();
    const auto k = blockKindFromString(kind.toString());
    if (!k)
        return std::nullopt;
    block.kind = *k;

    // Optional keys: absent or null is "not set"; any other wrong type refuses the file.
    const QJsonValue minutes = o.value(u"minutes");
    if (!minutes.isUndefined() && !minutes.isNull()) {
        const auto m = jsonInteger(minutes, INT_MIN, INT_MAX);
        if (!m)
            return std::nullopt;
        block.minutes = int(*m);
    }
    const QJsonValue days = o.value(u"days");
    if (!days.isUndefined() && !days.isNull()) {
        if (!days.isArray())
            return std::nullopt;
        QList<int> list;
        for (const QJsonValue day : days.toArray()) {
            const auto d = jsonInteger(day, INT_MIN, INT_MAX);
            if (!d)
                return std::nullopt;
            list.append(int(*d));
        }
        block.days = std::move(list);
    }
    return block;
}

QJsonObject encodeBlock(const Block& block) {
    QJsonObject o;
    o.insert(u"at", block.at);
    o.insert(u"label", block.label);
    o.insert(u"kind", toString(block.kind));
    if (block.minutes)
        o.insert(u"minutes", *block.minutes);
    if (block.days) {
        QJsonArray days;
        for (int d : *block.days)
            days.append(d);
        o.insert(u"days", days);
    }
    return o;
}

} // namespace

ScheduleStore::ScheduleStore(QString path, SaveFailures* failures, QObject* parent)
    : QObject(parent)
    , path_(std::move(path))
    , failures_(failures) {
}

ScheduleStore::~ScheduleStore() {
    if (failures_)
        failures_->forget(path_);
}

QString ScheduleStore::defaultPath() {
    return paths::dataDir() + u"/schedule.json";
}

namespace {
bool write(const QList<Block>& blocks, const QString& path, QString* reason) {
    // A file the person broke by hand is kept aside before the setup window's week replaces it;
    // without that copy it is not replaced at all.
    if (QFileInfo::exists(path)) {
        const auto bytes = readWholeFile(path, maxScheduleBytes);
        if ((!bytes || !ScheduleStore::decode(*bytes)) && keepUnreadableCopy(path).isEmpty()) {
            *reason = QStringLiteral("the unreadable week could not be copied aside first");
            return false;
        }
    }
    return writeFileAtomically(path, ScheduleStore::encode(blocks), reason);
}

} // namespace

// Writes the week, or keeps it for the retry on every tick; announces it once it is on disk.
bool ScheduleStore::writeAndAnnounce(const QList<Block>& blocks) {
    QString reason;
    if (!write(blocks, path_, &reason)) {
        if (failures_)
            failures_->failed(path_, QStringLiteral("your week"), QStringLiteral("schedule"),
                              reason, [this, blocks] { return writeAndAnnounce(blocks); });
        return false;
    }
    if (failures_)
        failures_->succeeded(path_);
    Q_EMIT changed();
    return true;
}

namespace {
std::optional<QList<Block>> decodeArray(const QJsonValue& blocks) {
    if (!blocks.isArray())
        return std::nullopt;
    QList<Block> result;
    for (const QJsonValue item : blocks.toArray()) {
        auto block = decodeBlock(item);
        if (!block)
            return std::nullopt;
        result.append(std::move(*block));
    }
    return result;
}

QJsonArray encodeArray(const QList<Block>& blocks) {
    QJsonArray array;
    for (const Block& block : blocks)
        array.append(encodeBlock(block));
    return array;
}
} // namespace

std::optional<QList<Block>> ScheduleStore::decode(const QByteArray& bytes) {
    QJsonParseError error{};
    const QJsonDocument doc = QJsonDocument::fromJson(bytes, &error);
    if (error.error != QJsonParseError::NoError || !doc.isObject())
        return std::nullopt;
    return decodeArray(doc.object().value(u"blocks"));
}

std::optional<QList<Block>> ScheduleStore::decodeBlockList(const QByteArray& bytes) {
    QJsonParseError error{};
    const QJsonDocument doc = QJsonDocument::fromJson(bytes, &error);
    if (error.error != QJsonParseError::NoError || !doc.isArray())
        return std::nullopt;
    return decodeArray(doc.array());
}

QByteArray ScheduleStore::encodeBlockList(const QList<Block>& blocks) {
    return QJsonDocument(encodeArray(blocks)).toJson(QJsonDocument::Compact);
}

QByteArray ScheduleStore::encode(const QList<Block>& blocks) {
    QJsonObject root;
    root.insert(u"blocks", encodeArray(blocks));
    // QJsonObject keeps its keys sorted, which is the order the file promises.
    return QJsonDocument(root).toJson(QJsonDocument::Indented);
}

void ScheduleStore::sortByTimeOfDay(QList<Block>& blocks) {
    std::stable_sort(blocks.begin(), blocks.end(), [](const Block& a, const Block& b) {
        return a.minuteOfDay().value_or(0) < b.minuteOfDay().value_or(0);
    });
}

QList<Block> ScheduleStore::load(const QString& path) {
    const auto bytes = readWholeFile(path, maxScheduleBytes);
    if (!bytes)
        return {};
    return decode(*bytes).value_or(QList<Block>());
}

bool ScheduleStore::saveAll(QList<Block> blocks) {
    sortByTimeOfDay(blocks);
    return writeAndAnnounce(blocks);
}

bool ScheduleStore::saveWorkoutPlan(const QList<Block>& plan) {
    QList<Block> week;
    for (Block& block : load()) {
        if (block.kind != Block::Kind::Workout)
            week.append(std::move(block));
    }
    week.append(plan);
    return saveAll(std::move(week));
}

void ScheduleStore::writeExampleIfMissing() {
    // Any file at all, even an unreadable one, is the person's and is left alone.
    if (QFileInfo::exists(path_) || QFileInfo(path_).isSymLink())
        return;
    writeFileAtomically(path_, encode(exampleWeek()));
}

QList<Block> ScheduleStore::exampleWeek() {
    return {
        Block{QStringLiteral("13:00"), QStringLiteral("The Classic 7"), Block::Kind::Workout,
              std::nullopt, QList<int>{2, 3, 4, 5, 6}},
        Block{QStringLiteral("16:30"), QStringLiteral("Walk"), Block::Kind::Away, 15, std::nullopt},
    };
}

} // namespace tovin
