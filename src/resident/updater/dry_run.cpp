#include "resident/updater/dry_run.h"

#include "resident/updater/updater.h"

#include <QDir>
#include <QEventLoop>
#include <QTextStream>

namespace tovin::Diagnostics {

int updateDryRun(QTextStream& out, Updater::Session session) {
    if (!Updater::hasReleaseFeed()) {
        out << "Tovin update — dry run\n"
            << "  " << Updater::feedSummary() << '\n'
            << (Updater::managedByPackageManager()
                    ? "nothing to check: the package manager keeps this copy up to date\n"
                    : "nothing to check: this build was made without a release feed or key\n");
        out.flush();
        return 1;
    }
    out << "Tovin update — dry run\n"
        << "  feed: " << Updater::feedURL().toString() << "  (running " << Updater::currentVersion()
        << ")\n"
        << "fetching, checking the hash, and checking the signature…\n";
    out.flush();

    QEventLoop loop;
    int status = 1;
    Updater::check(session, &loop, [&](const Updater::Status& checked) {
        switch (checked.kind) {
        case Updater::Status::UpToDate:
            out << "up to date — nothing to fetch\n";
            status = 0;
            loop.quit();
            return;
        case Updater::Status::Failed:
            out << checked.message << '\n';
            loop.quit();
            return;
        case Updater::Status::Available:
            out << "  found " << checked.release.version << " at " << checked.release.url << '\n';
            out.flush();
            Updater::fetch(session, checked.release, &loop, [&](const Updater::Fetched& fetched) {
                if (fetched.failure) {
                    out << fetched.failure->message << '\n';
                } else {
                    out << "OK — verified\n"
                        << "hash matched, unpacked, signed with Tovin's release key\n"
                        << "(not installed: this is a dry run)\n";
                    status = 0;
                }
                if (!fetched.workingFolder.isEmpty())
                    QDir(fetched.workingFolder).removeRecursively();
                loop.quit();
            });
            return;
        }
    });
    loop.exec();
    out.flush();
    return status;
}

} // namespace tovin::Diagnostics
