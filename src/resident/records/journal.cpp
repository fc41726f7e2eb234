#include "resident/records/journal.h"

#include "core/atomic_file.h"
#include "core/iso_date.h"
#include "core/paths.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>

#include <cerrno>
#include <fcntl.h>
#include <mutex>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

namespace tovin {

namespace {

void toSystemLog(const QString& tag, const QString& message) {
    static const bool opened = [] {
        ::openlog("tovin", LOG_PID, LOG_USER);
        return true;
    }();
    (void)opened;
    const QByteArray text = (u'[' + tag + u"] " + message).toUtf8();
    ::syslog(LOG_NOTICE, "%s", text.constData());
}

// Keeps the newer half of an oversized file: split at every newline keeping empty pieces (the
// empty piece after the final newline counts), keep the last ⌊n/2⌋, join. Works on bytes, so a
// file someone corrupted with invalid UTF-8 is still bounded.
void rotateIfNeeded(const QString& path, qint64 size) {
    if (size <= Journal::rotateAboveBytes)
        return;
    const auto bytes = readWholeFile(path, 64 * Journal::rotateAboveBytes);
    if (!bytes)
        return;
    const QList<QByteArray> pieces = bytes->split('\n');
    const qsizetype keep = pieces.size() / 2;
    QByteArray kept;
    kept.reserve(bytes->size() / 2 + 1);
    for (qsizetype i = pieces.size() - keep; i < pieces.size(); ++i) {
        if (i > pieces.size() - keep)
            kept.append('\n');
        kept.append(pieces[i]);
    }
    writeFileAtomically(path, kept);
}

// A line is bounded, so halving an oversized file always keeps the recent lines: one huge
// message (a block label of a megabyte) must not leave nothing to keep.
QString bounded(const QString& message) {
    if (message.size() <= Journal::maxMessageChars)
        return message;
    QString text = message.left(Journal::maxMessageChars);
    if (text.back().isHighSurrogate())
        text.chop(1);
    return text + u" … [cut " + QString::number(message.size() - text.size()) + u" characters]";
}

// One entry, one line, whoever wrote the tag or the message (a label typed in the week, an
// event from the screen helper): every line break and control character Unicode knows becomes
// a space, so nothing can start a forged entry of its own.
QString oneLine(QString text) {
    for (QChar& c : text) {
        const auto cat = c.category();
        if (cat == QChar::Other_Control || cat == QChar::Separator_Line ||
            cat == QChar::Separator_Paragraph)
            c = u' ';
    }
    return text;
}

// A tag names a part of Tovin: a word, never a paragraph.
QString cleanTag(const QString& tag) {
    constexpr qsizetype maxTagChars = 32;
    QString t = oneLine(tag.left(maxTagChars));
    if (!t.isEmpty() && t.back().isHighSurrogate())
        t.chop(1);
    return t;
}

int openForAppend(const QByteArray& nativePath) {
    return ::open(nativePath.constData(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
}

} // namespace

Journal::Journal(QString path, const Clock& clock)
    : path_(std::move(path))
    , clock_(clock) {
}

QString Journal::defaultPath() {
    return paths::dataDir() + u"/tovin.log";
}

void Journal::writeLocked(const QString& tag, const QString& text, bool unchanged) {
    QByteArray line;
    line.reserve(64 + text.size() * 3);
    line += formatIsoSeconds(clock_.now()).toLatin1();
    line += "  [";
    line += QByteArray::number(qint64(::getpid()));
    line += "] [";
    line += tag.toUtf8();
    line += "] ";
    line += text.toUtf8();
    if (unchanged)
        line += "  (unchanged)";
    line += '\n';

    const QString& path = path_;
    const QByteArray nativePath = QFile::encodeName(path);
    int fd = openForAppend(nativePath);
    if (fd < 0) {
        // The folder may have been removed under us; make it again once.
        QDir().mkpath(QFileInfo(path).absolutePath());
        fd = openForAppend(nativePath);
        if (fd < 0)
            return;
    }
    struct stat before {};
    const bool knewSize = ::fstat(fd, &before) == 0;
    qsizetype written = 0;
    while (written < line.size()) {
        const ssize_t n = ::write(fd, line.constData() + written, size_t(line.size() - written));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            break;
        written += n;
    }
    // A line the disk took only part of comes off again: the file stays as it was, and the
    // next line does not start in the middle of a torn one.
    if (written < line.size() && knewSize) {
        // Should even that fail, the next line still starts on a line of its own.
        [[maybe_unused]] const int undone = ::ftruncate(fd, before.st_size);
    }
    struct stat st {};
    const bool sized = ::fstat(fd, &st) == 0;
    ::close(fd);
    if (sized)
        rotateIfNeeded(path, qint64(st.st_size));
}

void Journal::note(const QString& rawTag, const QString& message) {
    const QString tag = cleanTag(rawTag);
    const QString text = oneLine(bounded(message));
    toSystemLog(tag, text);
    std::lock_guard guard(lock_);
    writeLocked(tag, text, false);
}

void Journal::state(const QString& rawTag, const QString& fullMessage, double heartbeat) {
    const QString tag = cleanTag(rawTag);
    const QString message = oneLine(bounded(fullMessage));
    {
        std::lock_guard guard(lock_);
        const qint64 nowMs = clock_.now().toMSecsSinceEpoch();
        auto it = lastState_.find(tag);
        const bool same = it != lastState_.end() && it->message == message;
        if (same && double(nowMs - it->writtenAtMs) < heartbeat * 1000.0)
            return;
        if (it == lastState_.end())
            it = lastState_.insert(tag, {});
        it->message = message;
        it->writtenAtMs = nowMs;
        writeLocked(tag, message, same);
    }
    toSystemLog(tag, message);
}

QStringList Journal::tail(int n) const {
    if (n <= 0)
        return {};
    // Written whole under the lock, so a read without it sees whole lines.
    const auto bytes = readWholeFile(path_, 64 * rotateAboveBytes);
    if (!bytes)
        return {};
    QStringList lines;
    const QList<QByteArray> pieces = bytes->split('\n');
    for (auto it = pieces.crbegin(); it != pieces.crend() && lines.size() < n; ++it) {
        if (!it->isEmpty())
            lines.prepend(QString::fromUtf8(*it));
    }
    return lines;
}

} // namespace tovin
