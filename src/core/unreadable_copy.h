#pragma once

#include <QString>

namespace tovin {

// Before a file that could not be read is replaced, a copy of it is kept beside it as
// "{name}.unreadable-{UTC time}", so a hand edit gone wrong can still be recovered by hand.
// Returns the copy's path, or an empty string when there was nothing to copy or copying failed
// (the file still exists then: the caller must not write over it).
QString keepUnreadableCopy(const QString& path);

} // namespace tovin
