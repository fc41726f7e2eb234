#pragma once

#include "core/screens.h"

#include <QPointer>
#include <QWidget>

class QCheckBox;
class QLabel;
class QPushButton;
class QVBoxLayout;

namespace tovin {

// The setup window: a strip with the menu's lines and items (for desktops without a tray) over
// the setup page. Closing it only hides it; what it was asked to do leaves as `chosen`.
class SetupWindow final : public QWidget {
    Q_OBJECT
public:
    explicit SetupWindow(const QByteArray& geometry);

    void setStrip(const SetupStrip& strip);
    // Where the page goes, under the strip.
    void setPage(QWidget* page);
    QWidget* page() const { return page_; }
    QByteArray frame() const { return saveGeometry(); }

Q_SIGNALS:
    // One of the menu's items: "lock", "rehearse", "pause", "login", "updates", "quit"; or
    // "gnomeExtension" once the person installed it (the value says why not, when it failed).
    void chosen(const QString& action, const QString& value = {});
    // Closed or hidden by Tovin (not minimised): the page goes, and the frame is worth
    // remembering.
    void hidden();

protected:
    void closeEvent(QCloseEvent* event) override;
    void hideEvent(QHideEvent* event) override;

private:
    QWidget* buildStrip();
    void offerGnomeExtension();

    QVBoxLayout* column_ = nullptr;
    QPointer<QWidget> page_;
    QPointer<QLabel> status_;
    QPointer<QLabel> standing_;
    QPointer<QPushButton> pause_;
    QPointer<QCheckBox> login_;
    QPointer<QPushButton> updates_;
    QPointer<QPushButton> gnomeExtension_;
};

} // namespace tovin
