// "Another program" for the Wayland end-to-end checks: a plain window that writes every key it
// receives to a file, so a check can tell whether typing reached anything but the shield.
//
//   key_sink FILE [TITLE]
#include <QApplication>
#include <QFile>
#include <QKeyEvent>
#include <QWidget>

namespace {

class Sink final : public QWidget {
public:
    explicit Sink(const QString& path)
        : file_(path) {
        file_.open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Unbuffered);
    }

protected:
    void keyPressEvent(QKeyEvent* event) override {
        const QByteArray text = event->text().toUtf8();
        file_.write(text.isEmpty() ? QByteArray("<key>") : text);
    }

private:
    QFile file_;
};

} // namespace

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    if (argc < 2)
        return 2;
    QApplication::setDesktopFileName(QStringLiteral("key-sink"));
    Sink sink(QString::fromLocal8Bit(argv[1]));
    sink.setWindowTitle(argc > 2 ? QString::fromLocal8Bit(argv[2]) : QStringLiteral("key sink"));
    sink.resize(600, 400);
    sink.show();
    return app.exec();
}
