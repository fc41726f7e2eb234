// Saves a PNG of the whole X display (every screen), for end-to-end checks to look at.
//   xshot OUT.png      (uses $DISPLAY)
#include <QGuiApplication>
#include <QPixmap>
#include <QScreen>

#include <cstdio>

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
    return shot.save(QString::fromLocal8Bit(argv[1])) ? 0 : 1;
}
