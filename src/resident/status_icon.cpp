#include "resident/status_icon.h"

#include "desktop/shield_style.h"

#include <QGuiApplication>
#include <QPainter>
#include <QPainterPath>
#include <QPalette>
#include <QPixmap>

namespace tovin {

QIcon statusIcon(bool darkPanel, bool enabled) {
    QIcon icon;
    for (const int scale : {1, 2, 3}) {
        // Drawn on a 17 × 14 grid, centred in a square so trays that expect squares keep it whole.
        const int side = 22 * scale;
        QPixmap pixmap(side, side);
        pixmap.fill(Qt::transparent);
        QPainter p(&pixmap);
        p.setRenderHint(QPainter::Antialiasing);
        p.scale(scale, scale);
        p.translate((22 - 17) / 2.0, (22 - 14) / 2.0);
        QColor ink = darkPanel ? QColor(236, 239, 244) : QColor(24, 28, 34);
        if (!enabled)
            ink.setAlphaF(0.35f);
        QPen pen(ink, 1.7);
        pen.setCapStyle(Qt::RoundCap);
        p.setPen(pen);
        QPainterPath path;
        for (const double x : {3.4, 6.7, 10.0, 13.3}) {
            path.moveTo(x, 14 - 3.0);
            path.lineTo(x, 14 - 11.4);
        }
        path.moveTo(1.7, 14 - 3.6);
        path.lineTo(15.0, 14 - 10.8);
        p.drawPath(path);
        p.end();
        icon.addPixmap(pixmap);
    }
    return icon;
}

bool panelIsDark() {
    return desktopIsDark();
}

} // namespace tovin
