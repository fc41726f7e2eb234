#include "core/paths.h"

#include <QDir>
#include <QStandardPaths>

namespace tovin::paths {

namespace {
QString ensured(const QString& dir) {
    QDir().mkpath(dir);
    return dir;
}

QString base(QStandardPaths::StandardLocation location) {
    QString dir = QStandardPaths::writableLocation(location);
    if (dir.isEmpty())
        dir = QDir::homePath();
    return dir;
}
} // namespace

QString dataDir() {
    return ensured(base(QStandardPaths::GenericDataLocation) + u"/Tovin");
}

QString legacyLedgerFile() {
    return base(QStandardPaths::GenericDataLocation) + u"/ARVEL/promises.json";
}

QString configDir() {
    return ensured(base(QStandardPaths::GenericConfigLocation) + u"/Tovin");
}

QString runtimeDir() {
    QString dir = QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation);
    if (dir.isEmpty())
        dir = QDir::tempPath();
    return ensured(dir + u"/tovin");
}

} // namespace tovin::paths
