// The screen helper: everything Tovin draws, in a process that lives only while something
// shows. The resident starts it with its end of a socket pair; it never starts alone.

#include "desktop/shield_style.h"
#include "desktop/window_system.h"
#include "screens/local_screens.h"
#include "screens/screen_host.h"
#include "screens/web/bundle_scheme_handler.h"

#include <QApplication>

#include <cstdio>

#ifdef __linux__
#include <csignal>
#include <sys/prctl.h>
#include <unistd.h>
#endif

using namespace tovin;

int main(int argc, char* argv[]) {
    int fd = -1;
    for (int i = 1; i + 1 < argc; ++i) {
        if (qstrcmp(argv[i], "--fd") == 0)
            fd = QByteArray(argv[i + 1]).toInt();
    }
    if (fd < 3) {
        std::fputs("tovin-screens is started by tovin; run tovin instead.\n", stderr);
        return 2;
    }
#ifdef __linux__
    // A backstop to the socket: should the resident be killed outright, the kernel ends this
    // process too, and the X server takes its windows and its keyboard grab with it.
    const pid_t parent = ::getppid();
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (::getppid() != parent)
        return 0;
#endif

    // The resident chose already and this process inherits it; this covers a helper started
    // by hand in a Wayland session.
    WindowSystem::chooseNativePlatform();
    BundleSchemeHandler::registerScheme();
    QCoreApplication::setAttribute(Qt::AA_ShareOpenGLContexts);
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Tovin"));
    QApplication::setApplicationVersion(QStringLiteral(TOVIN_VERSION));
    QApplication::setDesktopFileName(QStringLiteral("dev.tovin.Tovin"));
    // The resident says when nothing shows any more; closing a window never ends this alone.
    QApplication::setQuitOnLastWindowClosed(false);
    applyTovinLook(app);

    LocalScreens screens(Clock::system());
    ScreenHost host(screens);
    QString why;
    if (!host.attach(fd, &why)) {
        std::fprintf(stderr, "tovin-screens: %s\n", qPrintable(why));
        return 1;
    }
    return app.exec();
}
