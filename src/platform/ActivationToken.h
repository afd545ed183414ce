#pragma once

#include <QByteArray>
#include <QByteArrayView>

/// The permission to take the keyboard focus that a desktop hands the command it starts
/// from a shortcut. `ravelo trigger` passes it on to the running instance, whose panel
/// spends it when it shows next.
///
/// Encoded as "xdg:TOKEN" for a Wayland activation token (XDG_ACTIVATION_TOKEN) and
/// "x11:ID" for an X11 startup notification id (DESKTOP_STARTUP_ID).
namespace ActivationToken {

/// The longest token taken; real ones are well below it.
constexpr qsizetype maxLength = 256;

/// The token this process was started with, encoded; empty when there is none.
QByteArray fromEnvironment();
/// Whether `encoded` is a token this module can use: a known kind and printable characters
/// without spaces.
bool isValid(QByteArrayView encoded);

/// Keeps a received token (ignored when not valid) for the next window that is activated.
void setPending(const QByteArray& encoded);
/// The pending Wayland activation token, taken away; empty when the pending one is not.
QByteArray takeWayland();
/// The pending X11 startup id, taken away; empty when the pending one is not.
QByteArray takeStartupId();

} // namespace ActivationToken
