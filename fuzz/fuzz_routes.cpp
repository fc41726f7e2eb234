// Any request path: whatever resolve answers lies inside the bundle's root.
#include "core/bundle_routes.h"

#include <QDir>
#include <QTemporaryDir>

#include <cstdint>
#include <cstdlib>

using namespace tovin;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // A folder of this run's own, removed when the run ends.
    static const QTemporaryDir dir;
    static const QString root = QDir::cleanPath(dir.path());
    static const bool made = QDir().mkpath(root + u"/assets");
    (void)made;
    const QString path = QString::fromUtf8(reinterpret_cast<const char*>(data), qsizetype(size));
    const auto file = BundleRoutes::resolve(root, path);
    if (file && *file != root && !file->startsWith(root + u'/'))
        std::abort();
    return 0;
}
