#include "screens/web/bundle_scheme_handler.h"

#include "core/bundle_routes.h"

#include <QBuffer>
#include <QWebEngineUrlRequestJob>
#include <QWebEngineUrlScheme>

namespace tovin {

BundleSchemeHandler::BundleSchemeHandler(QString root, QObject* parent)
    : QWebEngineUrlSchemeHandler(parent)
    , root_(std::move(root)) {
}

void BundleSchemeHandler::registerScheme() {
    QWebEngineUrlScheme scheme(BundleRoutes::scheme);
    scheme.setSyntax(QWebEngineUrlScheme::Syntax::Host);
    scheme.setFlags(QWebEngineUrlScheme::SecureScheme | QWebEngineUrlScheme::LocalAccessAllowed |
                    QWebEngineUrlScheme::CorsEnabled);
    QWebEngineUrlScheme::registerScheme(scheme);
}

void BundleSchemeHandler::requestStarted(QWebEngineUrlRequestJob* job) {
    const QUrl url = job->requestUrl();
    const BundleRoutes::Answer a = BundleRoutes::answer(root_, url.host(), url.path());
    // Qt 6.4's job has no status code or extra headers: a 200 is a reply with its content
    // type and body, and both 404s become "URL not found", which the page sees as a failed
    // load, as it would a 404 for a script or a module.
    if (a.status != 200) {
        job->fail(QWebEngineUrlRequestJob::UrlNotFound);
        return;
    }
    auto* buffer = new QBuffer(job);
    buffer->setData(a.body);
    buffer->open(QIODevice::ReadOnly);
    job->reply(a.contentType, buffer);
}

} // namespace tovin
