#pragma once

#include <QDateTime>
#include <QString>

#include <optional>

namespace tovin {

// A real lockout that is up, on disk for as long as it is. Every designed ending takes it away,
// and so does a crash of Tovin's own (a fault is not a broken promise). What is left at the next
// launch is a lockout cut short from outside: Tovin killed, or the machine restarted under it.
class LockoutMark {
public:
    struct Mark {
        QString exercise;
        QDateTime raisedAt;
        qint64 pid = 0;
    };

    explicit LockoutMark(QString path);

    // tovin's data folder, lockout-underway.json.
    static QString defaultPath();

    void set(const QString& exercise, const QDateTime& raisedAt);
    // Takes this copy's own mark away (another copy's stays).
    void clear();
    // The mark left by a copy of Tovin that no longer runs, taken away as it is read; none when
    // there is none, or when the copy that made it still runs (a second copy's own lockout).
    std::optional<Mark> takeAbandoned();

    // From now on a crash (a fault of this process's own, not the same signal sent by somebody
    // else) removes the mark before the process dies.
    void clearOnCrash();

private:
    QString path_;
};

} // namespace tovin
