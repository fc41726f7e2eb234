#include "resident/lockout_mark.h"

#include "core/atomic_file.h"
#include "core/iso_date.h"
#include "core/json_values.h"
#include "core/paths.h"
#include "resident/records/instance_record.h"

#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>

#include <csignal>
#include <cstring>
#include <unistd.h>

namespace tovin {

namespace {
// Kept where a signal handler can reach it: only async-signal-safe calls may use it.
char crashPath[4096];

extern "C" void removeMarkAndDie(int signal, siginfo_t* info, void*) {
    // A fault of this process's own; the same signal sent by somebody else (kill -SEGV) is a
    // kill from outside like any other, and the mark stays for the next launch to find.
    if (info->si_code > 0 || info->si_pid == ::getpid())
        ::unlink(crashPath);
    // The default action again, so the crash is still a crash (a core, the right exit status).
    ::signal(signal, SIG_DFL);
    ::raise(signal);
}
} // namespace

LockoutMark::LockoutMark(QString path)
    : path_(std::move(path)) {
}

QString LockoutMark::defaultPath() {
    return paths::dataDir() + u"/lockout-underway.json";
}

void LockoutMark::set(const QString& exercise, const QDateTime& raisedAt) {
    const QJsonObject o{{QStringLiteral("exercise"), exercise},
                        {QStringLiteral("raisedAt"), formatIsoSeconds(raisedAt)},
                        {QStringLiteral("pid"), qint64(::getpid())}};
    writeFileAtomically(path_, QJsonDocument(o).toJson(QJsonDocument::Indented));
}

void LockoutMark::clear() {
    // Only this copy's own: a second copy (a layout check) ending its lockout must not take the
    // mark of the one the watcher holds.
    const auto bytes = readWholeFile(path_, 64 * 1024);
    if (!bytes)
        return;
    const auto pid = jsonInteger(QJsonDocument::fromJson(*bytes).object().value(u"pid"));
    if (!pid || *pid == ::getpid())
        QFile::remove(path_);
}

std::optional<LockoutMark::Mark> LockoutMark::takeAbandoned() {
    const auto bytes = readWholeFile(path_, 64 * 1024);
    if (!bytes)
        return std::nullopt;
    const QJsonObject o = QJsonDocument::fromJson(*bytes).object();
    Mark mark;
    mark.pid = jsonInteger(o.value(u"pid")).value_or(0);
    if (mark.pid > 0 && mark.pid != ::getpid() && isRunningTovin(mark.pid))
        return std::nullopt; // its copy still runs, and still holds that lockout
    QFile::remove(path_);
    mark.exercise = o.value(u"exercise").toString();
    mark.raisedAt = parseIsoInstant(o.value(u"raisedAt").toString()).value_or(QDateTime());
    return mark;
}

void LockoutMark::clearOnCrash() {
    const QByteArray native = QFile::encodeName(path_);
    if (native.size() >= qsizetype(sizeof crashPath))
        return;
    std::memcpy(crashPath, native.constData(), size_t(native.size()) + 1);
    // A stack of its own, so a stack overflow's fault still runs the handler.
    static char altStack[64 * 1024];
    stack_t stack{};
    stack.ss_sp = altStack;
    stack.ss_size = sizeof altStack;
    ::sigaltstack(&stack, nullptr);
    struct sigaction action {};
    action.sa_sigaction = removeMarkAndDie;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK;
    sigemptyset(&action.sa_mask);
    for (const int signal : {SIGSEGV, SIGABRT, SIGBUS, SIGFPE, SIGILL})
        ::sigaction(signal, &action, nullptr);
}

} // namespace tovin
