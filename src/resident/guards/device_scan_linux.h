#pragma once

#include <QList>
#include <QString>

namespace tovin {

// What /proc shows about capture devices, for when there is no sound server to ask and for the
// camera, which no server brokers. The folders are parameters so tests can stage their own.

// ALSA capture substreams: how many there are, and whether any reads "state: RUNNING".
struct AlsaCapture {
    int devices = 0;
    bool running = false;
};
AlsaCapture scanAlsaCapture(const QString& asoundDir = QStringLiteral("/proc/asound"));

// A process other than this one and `alsoOurs` (the screen helper, whose camera coach reads the
// camera) that holds open a file named video* in deviceDir, found by reading the fd links of
// every process this user may look at: its pid, or 0 when there is none.
qint64 anotherProcessHoldsVideoDevice(const QString& deviceDir = QStringLiteral("/dev"),
                                      const QString& procDir = QStringLiteral("/proc"),
                                      const QList<qint64>& alsoOurs = {});

// This user's processes that run the program named `comm` (as the kernel names it), other than
// this one.
QList<qint64> ownProcessesNamed(const QByteArray& comm,
                                const QString& procDir = QStringLiteral("/proc"));

} // namespace tovin
