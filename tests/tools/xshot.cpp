// Saves a PNG of the whole X display (every screen), for end-to-end checks to look at.
//   xshot OUT.png              (uses $DISPLAY)
//   xshot OUT.png --covered    also exits 3 unless every screen shows the shield's colour
//                              (sampled away from the middle, where content sits)
#include <QGuiApplication>
#include <QPixmap>
#include <QScreen>

#include <cstdio>
#include <cstdlib>

int main(int argc, char* argv[]) {
    qputenv("QT_QPA_PLATFORM", "xcb");
    QGuiApplication app(argc, argv);
    if (argc < 2) {
        std::fprintf(stderr, "usage: xshot OUT.png\n");
        return 2;
    }
    QScreen* screen = QGuiApplication::primaryScreen();
    const QRect all = screen->virtualGeometry();
    const QPixmap shot = screen->grabWindow(0, all.x(), all.y(), all.width(), all.height());
    if (!shot.save(QString::fromLocal8Bit(argv[1])))
        return 1;
    if (argc > 2 && qstrcmp(argv[2], "--covered") == 0) {
        const QImage image = shot.toImage();
        for (QScreen* s : QGuiApplication::screens()) {
            const QRect g = s->geometry().translated(-all.topLeft());
            for (const QPoint p :
                 {QPoint(g.left() + 30, g.top() + 30), QPoint(g.right() - 30, g.top() + 30),
                  QPoint(g.left() + 30, g.bottom() - 60),
                  QPoint(g.right() - 30, g.bottom() - 60)}) {
                const QRgb c = image.pixel(p);
                if (std::abs(qRed(c) - 10) > 3 || std::abs(qGreen(c) - 13) > 3 ||
                    std::abs(qBlue(c) - 18) > 3) {
                    std::printf("%s not covered at %d,%d (%d,%d,%d)\n", qPrintable(s->name()),
                                p.x(), p.y(), qRed(c), qGreen(c), qBlue(c));
                    return 3;
                }
            }
        }
    }
    return 0;
}
