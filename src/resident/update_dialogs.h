#pragma once

#include "resident/updater/updater.h"

#include <QDialog>
#include <QMessageBox>
#include <QObject>
#include <QPointer>
#include <QProgressBar>

#include <functional>
#include <optional>

namespace tovin {

class AppController;

// The dialogs around the updater: the result of "Check for Updates…", the offer of a newer
// release, the download's progress with its Cancel button, and what went wrong.
class UpdateDialogs final : public QObject {
    Q_OBJECT
public:
    UpdateDialogs(AppController& controller, Updater::Session session, QObject* parent = nullptr);

    void checkForUpdates(bool quietly);
    void checkForUpdatesFromMenu() { checkForUpdates(false); }
    void offer(const Updater::Release& release);

    // How the program ends once the hand-over has started (the controller's terminate, by
    // default), and which copy is replaced (the running one): tests point both elsewhere.
    std::function<void()> quitting;
    std::optional<Updater::InstalledCopy> installTarget;

    QMessageBox* offerBox() const { return offerBox_; }
    QDialog* progressBox() const { return progressBox_; }
    QProgressBar* progressBar() const { return bar_; }

Q_SIGNALS:
    // Something the person must be told (the result of a check, a refusal).
    void alertRequested(const QString& title, const QString& detail);
    // A fetch ended one way or the other (installed, refused, or cancelled).
    void fetchEnded();

private:
    // A verified download that waits for the lockout (or its countdown) to be over: installing
    // ends this copy, and a lockout must end the way the person ends it.
    std::optional<std::pair<Updater::Release, Updater::Fetched>> waiting_;
    void download(const Updater::Release& release);
    void fetched(const Updater::Release& release, const Updater::Fetched& result);
    void install(const Updater::Fetched& result);

    AppController& controller_;
    Updater::Session session_;
    QPointer<QMessageBox> offerBox_;
    QPointer<QDialog> progressBox_;
    QPointer<QProgressBar> bar_;
    QPointer<Updater::Download> download_;
};

} // namespace tovin
