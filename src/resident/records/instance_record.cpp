#include "resident/records/instance_record.h"

#include "core/atomic_file.h"
#include "core/iso_date.h"
#include "core/json_values.h"
#include "core/paths.h"

#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>

#include <cerrno>
#include <csignal>

namespace tovin {

namespace {
bool processIsAlive(qint64 pid) {
    if (pid <= 0 || pid > 0x3fffffff)
        return false;
    // Signal 0 checks for existence; EPERM still means someone is there.
    return ::kill(pid_t(pid), 0) == 0 || errno == EPERM;
}
} // namespace

bool isRunningTovin(qint64 pid) {
    if (!processIsAlive(pid))
        return false;
    QFile comm(u"/proc/" + QString::number(pid) + u"/comm");
    if (!comm.open(QIODevice::ReadOnly))
        return true;
    const QByteArray name = comm.readAll().trimmed();
    return name == "tovin" || name.startsWith("tovin_");
}

QString InstanceRecord::defaultPath() {
    // No private folder, no record: an empty path reads as nobody and is never written.
    const QString dir = paths::runtimeDir();
    return dir.isEmpty() ? QString() : dir + u"/instance.json";
}

std::optional<InstanceRecord> InstanceRecord::readLive(const QString& path) {
    if (path.isEmpty())
        return std::nullopt;
    const auto bytes = readWholeFile(path, 64 * 1024);
    if (!bytes)
        return std::nullopt;
    const QJsonDocument doc = QJsonDocument::fromJson(*bytes);
    if (!doc.isObject())
        return std::nullopt;
    InstanceRecord record;
    const auto pid = jsonInteger(doc.object().value(u"pid"));
    if (!pid || !processIsAlive(*pid))
        return std::nullopt;
    record.pid = *pid;
    const QJsonValue launched = doc.object().value(u"launchedAt");
    if (launched.isString())
        record.launchedAt = parseIsoInstant(launched.toString());
    return record;
}

bool InstanceRecord::write(const QString& path) const {
    if (path.isEmpty())
        return false;
    QJsonObject o;
    o.insert(u"pid", pid);
    if (launchedAt)
        o.insert(u"launchedAt", formatIsoSeconds(*launchedAt));
    return writeFileAtomically(path, QJsonDocument(o).toJson(QJsonDocument::Indented));
}

} // namespace tovin
