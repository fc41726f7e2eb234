#pragma once

#include "resident/guards/idle_source.h"

#include <QByteArray>

#include <memory>

namespace tovin {

// Idle seconds from the X server's screen-saver extension, over a connection of its own so it
// works whether or not Qt itself runs on X11.
class X11IdleSource final : public IdleSource {
public:
    // None when there is no X display to open or it lacks the extension.
    static std::unique_ptr<X11IdleSource> open(const QByteArray& display = {});
    ~X11IdleSource() override;

    double secondsSinceLastInput() override;
    QString name() const override { return QStringLiteral("X11 screen saver"); }

private:
    struct Private;
    explicit X11IdleSource(std::unique_ptr<Private> d);
    std::unique_ptr<Private> d_;
};

} // namespace tovin
