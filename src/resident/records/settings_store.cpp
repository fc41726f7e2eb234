#include "resident/records/settings_store.h"

#include "core/atomic_file.h"
#include "core/unreadable_copy.h"
#include "resident/records/save_failures.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>

#include <sys/stat.h>

namespace tovin {

namespace {
constexpr qint64 maxSettingsBytes = 4 * 1024 * 1024;
}

QJsonValue MemorySettingsStore::value(const QString& key) const {
    std::lock_guard lock(mutex_);
    return values_.value(key);
}

void MemorySettingsStore::setValue(const QString& key, const QJsonValue& value) {
    std::lock_guard lock(mutex_);
    if (value.isUndefined() || value.isNull())
        values_.remove(key);
    else
        values_.insert(key, value);
}

JsonFileSettingsStore::JsonFileSettingsStore(QString path, SaveFailures* failures)
    : path_(std::move(path))
    , failures_(failures)
    , nativePath_(QFile::encodeName(path_)) {
}

JsonFileSettingsStore::Identity JsonFileSettingsStore::identityOf(const QByteArray& nativePath) {
    struct stat st {};
    if (::stat(nativePath.constData(), &st) != 0)
        return {};
#if defined(__APPLE__)
    const auto& mtime = st.st_mtimespec;
#else
    const auto& mtime = st.st_mtim;
#endif
    return {true, quint64(st.st_dev), quint64(st.st_ino), qint64(st.st_size),
            qint64(mtime.tv_sec) * 1'000'000'000 + mtime.tv_nsec};
}

QJsonObject JsonFileSettingsStore::parse(const QByteArray& bytes, bool* readable) {
    QJsonParseError error{};
    const QJsonDocument doc = QJsonDocument::fromJson(bytes, &error);
    const bool ok = error.error == QJsonParseError::NoError && doc.isObject();
    if (readable)
        *readable = ok;
    return ok ? doc.object() : QJsonObject();
}

void JsonFileSettingsStore::refreshLocked() const {
    const Identity now = identityOf(nativePath_);
    if (loaded_ && now == identity_)
        return;
    loaded_ = true;
    identity_ = now;
    unreadable_ = false;
    if (!now.exists) {
        values_ = {};
        return;
    }
    const auto bytes = readWholeFile(path_, maxSettingsBytes);
    bool readable = false;
    values_ = bytes ? parse(*bytes, &readable) : QJsonObject();
    unreadable_ = !readable;
}

QJsonValue JsonFileSettingsStore::value(const QString& key) const {
    std::lock_guard lock(mutex_);
    refreshLocked();
    return values_.value(key);
}

void JsonFileSettingsStore::setValue(const QString& key, const QJsonValue& value) {
    std::lock_guard lock(mutex_);
    refreshLocked();
    if (value.isUndefined() || value.isNull()) {
        if (!values_.contains(key) && !unreadable_)
            return;
        values_.remove(key);
    } else {
        values_.insert(key, value);
    }
    writeLocked();
}

bool JsonFileSettingsStore::writeLocked() {
    // The values stay in memory whatever happens here, and the file's identity is taken only
    // after a write that reached the disk, so a failed one is neither forgotten nor re-read
    // over; the retry on every tick writes them.
    QString reason;
    bool ok = true;
    if (unreadable_) {
        if (keepUnreadableCopy(path_).isEmpty() && QFileInfo::exists(path_)) {
            ok = false;
            reason = QStringLiteral("the unreadable settings could not be copied aside first");
        } else {
            unreadable_ = false;
        }
    }
    ok = ok && writeFileAtomically(path_, QJsonDocument(values_).toJson(QJsonDocument::Indented),
                                   &reason);
    if (!ok) {
        if (failures_)
            failures_->failed(path_, QStringLiteral("your settings"), QStringLiteral("settings"),
                              reason, [this] {
                                  std::lock_guard lock(mutex_);
                                  return writeLocked();
                              });
        return false;
    }
    identity_ = identityOf(nativePath_);
    if (failures_)
        failures_->succeeded(path_);
    return true;
}

JsonFileSettingsStore::~JsonFileSettingsStore() {
    if (failures_)
        failures_->forget(path_);
}

} // namespace tovin
