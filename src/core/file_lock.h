#pragma once

#include <QString>

namespace tovin {

// An advisory lock on a file of its own (the guarded file's name + ".lock"), held from
// construction to destruction: two copies of Tovin that both read, change and rewrite one
// file take turns instead of writing over each other. A copy that holds it for longer than
// `patienceMs` (stopped in a debugger, say) is not waited for forever: the lock then goes
// unheld and the write goes ahead, as it would have without the lock.
class FileLock {
public:
    explicit FileLock(const QString& guardedPath, int patienceMs = 2000);
    ~FileLock();
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;

    bool isHeld() const { return fd_ >= 0; }

private:
    int fd_ = -1;
};

} // namespace tovin
