#include "resident/update_dialogs.h"

#include "resident/app_controller.h"
#include "resident/records/journal.h"

#include <QCoreApplication>
#include <QDialog>
#include <QHBoxLayout>
#include <QLabel>
#include <QMessageBox>
#include <QProgressBar>
#include <QPushButton>
#include <QVBoxLayout>

namespace tovin {

namespace {

const QString notInstalled = QStringLiteral("The update wasn't installed.");

} // namespace

UpdateDialogs::UpdateDialogs(AppController& controller, Updater::Session session, QObject* parent)
    : QObject(parent)
    , controller_(controller)
    , session_(session) {
    // The hand-over waits for this copy to end: it ends now, not once some alert is read (while
    // it lingers, no lockout may start).
    quitting = [] {
        QMetaObject::invokeMethod(qApp, &QCoreApplication::quit, Qt::QueuedConnection);
    };
    connect(&controller_, &AppController::ticked, this, [this] {
        if (waiting_ && !controller_.lockoutUnderway())
            install(std::exchange(waiting_, std::nullopt)->second);
    });
}

void UpdateDialogs::checkForUpdates(bool quietly) {
    // A build without a release feed does not pretend to check: the quiet check at launch is
    // skipped, and the menu's check says where updates come from instead.
    if (Updater::managedByPackageManager()) {
        if (!quietly)
            Q_EMIT alertRequested(
                QStringLiteral("Your package manager keeps Tovin up to date."),
                QStringLiteral("This copy was installed as a package, so it never updates itself: "
                               "new versions come with your system's software updates."));
        return;
    }
    if (!Updater::hasReleaseFeed()) {
        if (!quietly)
            Q_EMIT alertRequested(
                QStringLiteral("This copy of Tovin gets its updates elsewhere."),
                QStringLiteral("It was built without a release feed, so it never checks for "
                               "updates itself. Update it the same way you installed it."));
        return;
    }
    Updater::check(session_, this, [this, quietly](const Updater::Status& status) {
        switch (status.kind) {
        case Updater::Status::Available:
            offer(status.release);
            break;
        case Updater::Status::UpToDate:
            if (!quietly)
                Q_EMIT alertRequested(QStringLiteral("Tovin is up to date."),
                                      u"You're running version " + Updater::currentVersion() +
                                          u'.');
            break;
        case Updater::Status::Failed:
            if (!quietly)
                Q_EMIT alertRequested(QStringLiteral("Couldn't check for updates."),
                                      status.message);
            break;
        }
    });
}

void UpdateDialogs::offer(const Updater::Release& release) {
    if (controller_.lockoutUnderway()) {
        session_.journal.note(QStringLiteral("update"),
                              release.version + u" offered later — a lockout is in progress");
        return;
    }
    if ((offerBox_ && offerBox_->isVisible()) || (progressBox_ && progressBox_->isVisible()))
        return; // one offer at a time

    QString detail;
    if (release.notes && !release.notes->isEmpty())
        detail = *release.notes + u"\n\n";
    detail += u"You're running " + Updater::currentVersion() +
              u". Tovin will download it, check it's signed by the same developer, replace itself "
              u"and reopen.";

    auto* box = new QMessageBox(QMessageBox::Information, QStringLiteral("Tovin"),
                                u"Tovin " + release.version + u" is available.");
    box->setObjectName(QStringLiteral("updateOffer"));
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setInformativeText(detail);
    QPushButton* update = box->addButton(QStringLiteral("Update"), QMessageBox::AcceptRole);
    box->addButton(QStringLiteral("Not Now"), QMessageBox::RejectRole);
    box->setDefaultButton(update);
    connect(box, &QMessageBox::finished, this, [this, box, update, release] {
        if (box->clickedButton() == update)
            download(release);
    });
    offerBox_ = box;
    box->open();
}

void UpdateDialogs::download(const Updater::Release& release) {
    auto* dialog = new QDialog;
    dialog->setObjectName(QStringLiteral("updateProgress"));
    dialog->setWindowTitle(QStringLiteral("Tovin"));
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    auto* column = new QVBoxLayout(dialog);
    auto* title = new QLabel(u"Downloading Tovin " + release.version + u"…");
    QFont bold = title->font();
    bold.setBold(true);
    title->setFont(bold);
    column->addWidget(title);
    column->addWidget(new QLabel(QStringLiteral("This window will close when it's ready.")));
    bar_ = new QProgressBar;
    bar_->setFixedSize(300, 20);
    bar_->setRange(0, 0); // busy until the size is known
    column->addWidget(bar_);
    auto* row = new QHBoxLayout;
    row->addStretch();
    auto* cancel = new QPushButton(QStringLiteral("Cancel"));
    cancel->setObjectName(QStringLiteral("cancel"));
    row->addWidget(cancel);
    column->addLayout(row);
    progressBox_ = dialog;

    download_ =
        Updater::fetch(session_, release, this, [this, release](const Updater::Fetched& result) {
            if (progressBox_) {
                progressBox_->disconnect(this);
                progressBox_->close();
            }
            fetched(release, result);
        });
    connect(download_, &Updater::Download::progress, this, [this](qint64 received, qint64 total) {
        if (!bar_ || total <= 0)
            return;
        // Kilobytes keep a large download inside the bar's int range.
        bar_->setRange(0, int(total / 1024));
        bar_->setValue(int(received / 1024));
    });
    // Cancel, Esc and the window's close button all stop the download.
    connect(dialog, &QDialog::rejected, this, [this, release] {
        if (download_ && !download_->isFinished()) {
            download_->cancel();
            session_.journal.note(QStringLiteral("update"), u"cancelled before " + release.version +
                                                                u" finished downloading");
            Q_EMIT fetchEnded();
        }
    });
    connect(cancel, &QPushButton::clicked, dialog, &QDialog::reject);
    dialog->open();
}

void UpdateDialogs::fetched(const Updater::Release& release, const Updater::Fetched& result) {
    if (result.failure) {
        Q_EMIT alertRequested(notInstalled, result.failure->message);
        Q_EMIT fetchEnded();
        return;
    }
    // A block fired while it downloaded: the install waits for the schedule's first tick with
    // no countdown and no shield, so the lockout ends (and is recorded) as the person ends it.
    if (controller_.lockoutUnderway()) {
        session_.journal.note(QStringLiteral("update"),
                              release.version +
                                  u" downloaded — installing once the lockout is over");
        waiting_ = {release, result};
        return;
    }
    install(result);
}

void UpdateDialogs::install(const Updater::Fetched& result) {
    // From here Tovin ends and comes back as the new version: no lockout starts in between.
    controller_.standAsideForUpdate(true);
    const auto failure = Updater::install(session_.journal, result.newApp, result.workingFolder,
                                          quitting, installTarget.value_or(Updater::runningCopy()));
    if (failure) {
        controller_.standAsideForUpdate(false);
        Q_EMIT alertRequested(notInstalled, failure->message);
    }
    Q_EMIT fetchEnded();
}

} // namespace tovin
