#include "core/unreadable_copy.h"

#include <QDateTime>
#include <QFile>

namespace tovin {

QString keepUnreadableCopy(const QString& path) {
    if (!QFile::exists(path))
        return {};
    const QString stamp = QDateTime::currentDateTimeUtc().toString(u"yyyyMMdd-HHmmss-zzz");
    const QString copy = path + u".unreadable-" + stamp;
    return QFile::copy(path, copy) ? copy : QString();
}

} // namespace tovin
