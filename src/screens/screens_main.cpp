// The screen helper: everything Tovin draws, in a process that lives only while something
// shows. The resident starts it with the name of a socket to call back; it never starts alone.

#include "screens/local_screens.h"
#include "screens/screen_host.h"
#include "shield/shield_style.h"
#include "shield/window_system.h"
#include "workoutweb/bundle_scheme_handler.h"

#include <QApplication>

#include <cstdio>

#ifdef __linux__
#include <csignal>
#include <sys/prctl.h>
#include <unistd.h>
#endif

using namespace tovin;

int main(int argc, char* argv[]) {
    QString server;
    for (int i = 1; i + 1 < argc; ++i) {
        if (qstrcmp(argv[i], "--connect") == 0)
            server = QString::fromLocal8Bit(argv[i + 1]);
    }
    if (server.isEmpty()) {
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
    if (!host.connectTo(server)) {
        std::fputs("tovin-screens: the resident did not answer\n", stderr);
        return 1;
    }
    return app.exec();
}
