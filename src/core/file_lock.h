#pragma once

#include <QString>

namespace tovin {

// An advisory lock on a file of its own (the guarded file's name + ".lock"), held from
// construction to destruction: two copies of Tovin that both read, change and rewrite one
// file take turns instead of writing over each other. A copy that holds it for longer than
// `patienceMs` (stopped in a debugger, say) is not waited for forever: the lock is then busy,
// and the caller does not write. Where no lock file can be made (a read-only folder) it is
// neither held nor busy: the write that follows fails on its own and says why.
class FileLock {
public:
    explicit FileLock(const QString& guardedPath, int patienceMs = 2000);
    ~FileLock();
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;

    bool isHeld() const { return fd_ >= 0; }
    // Somebody else held it for longer than the patience allowed.
    bool isBusy() const { return busy_; }

private:
    int fd_ = -1;
    bool busy_ = false;
};

} // namespace tovin
