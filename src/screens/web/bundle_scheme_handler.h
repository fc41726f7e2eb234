#pragma once

#include <QString>
#include <QWebEngineUrlSchemeHandler>

namespace tovin {

// Serves the packaged web app over tovin://app from a folder on disk: a real origin for the
// page, with no network and no local web server. Every request gets exactly one answer: 200
// with the file, 404 "not found" or 404 "unreadable". A request the page has cancelled gets
// nothing more (Qt's job object is dead then, and is not touched).
class BundleSchemeHandler final : public QWebEngineUrlSchemeHandler {
    Q_OBJECT
public:
    explicit BundleSchemeHandler(QString root, QObject* parent = nullptr);

    // Registers the scheme with the browser engine; must run before the application object
    // exists. Secure (the page is a secure context), local access, CORS-enabled so module
    // scripts and dynamic imports load.
    static void registerScheme();

    const QString& root() const { return root_; }
    void setRoot(const QString& root) { root_ = root; }

    void requestStarted(QWebEngineUrlRequestJob* job) override;

private:
    QString root_;
};

} // namespace tovin
