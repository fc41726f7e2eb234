#pragma once

#include <QJsonObject>
#include <QJsonValue>
#include <QString>

#include <mutex>

namespace tovin {

class SaveFailures;

// A key-value store of typed JSON values behind the settings. Missing keys read as undefined.
class SettingsStore {
public:
    virtual ~SettingsStore() = default;

    virtual QJsonValue value(const QString& key) const = 0;
    // Storing undefined or null removes the key.
    virtual void setValue(const QString& key, const QJsonValue& value) = 0;
    void remove(const QString& key) { setValue(key, QJsonValue(QJsonValue::Undefined)); }
};

// A throw-away store that lives in memory, for tests and the self-check, so nothing they do
// reaches the person's real settings.
class MemorySettingsStore final : public SettingsStore {
public:
    explicit MemorySettingsStore(QString name = {}, QJsonObject values = {})
        : name_(std::move(name))
        , values_(std::move(values)) {}

    const QString& name() const { return name_; }
    QJsonValue value(const QString& key) const override;
    void setValue(const QString& key, const QJsonValue& value) override;

private:
    QString name_;
    QJsonObject values_;
    mutable std::mutex mutex_;
};

// The real store: one JSON object in a file, keys sorted, values keeping their JSON types.
// Every read looks at the file's identity (inode, size, modification time) and parses it again
// only when that changed, so a hand edit takes effect at once and an unchanged read costs one
// stat. Writes replace the file whole and atomically. An unreadable file reads as empty (every
// setting at its default); before the first write replaces it, a copy is kept beside it.
class JsonFileSettingsStore final : public SettingsStore {
public:
    // Writes that do not reach the disk are retried through `failures` (none: only kept).
    explicit JsonFileSettingsStore(QString path, SaveFailures* failures = nullptr);
    ~JsonFileSettingsStore() override;

    const QString& path() const { return path_; }
    QJsonValue value(const QString& key) const override;
    void setValue(const QString& key, const QJsonValue& value) override;

    // The settings object a file's bytes hold; empty for anything but a JSON object.
    static QJsonObject parse(const QByteArray& bytes, bool* readable = nullptr);

private:
    struct Identity {
        bool exists = false;
        quint64 device = 0;
        quint64 inode = 0;
        qint64 size = 0;
        qint64 mtimeNs = 0;
        bool operator==(const Identity&) const = default;
    };
    static Identity identityOf(const QByteArray& nativePath);
    void refreshLocked() const;
    bool writeLocked();

    QString path_;
    SaveFailures* failures_ = nullptr;
    QByteArray nativePath_;
    mutable std::mutex mutex_;
    mutable bool loaded_ = false;
    mutable Identity identity_;
    mutable QJsonObject values_;
    mutable bool unreadable_ = false;
};

} // namespace tovin
