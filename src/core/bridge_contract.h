#pragma once

#include <QList>
#include <QString>
#include <QStringList>

namespace tovin {

// What a page is for: the setup window's, a lockout's workout, or a lockout's fitness check.
enum class PageMode { Setup, Locked, Retest };
QString toString(PageMode mode);

// The page's side of window.TOVIN_NATIVE, shared by the process that shows a page and the one
// that applies what it says: the messages a page may post, and the functions that post them.
namespace BridgeContract {

// Every message type the page may post, with the fields each carries.
struct Type {
    QString name;
    QStringList fields;
};
QList<Type> schema();

// The functions of TOVIN_NATIVE, as JavaScript object members: each posts one message of the
// schema through window.__tovinPost.
QString bridgeFunctions();

} // namespace BridgeContract
} // namespace tovin
