#include "platform/null/NullPanelWindowSupport.h"

#include "platform/ActivationToken.h"

#include <QWindow>

void NullPanelWindowSupport::activate(QWindow* window)
{
    // Qt's Wayland windows spend the token in the environment on their next activation.
    if (const QByteArray token = ActivationToken::takeWayland(); !token.isEmpty()) {
        qputenv("XDG_ACTIVATION_TOKEN", token);
    }
    ActivationToken::takeStartupId();
    window->requestActivate();
}

void NullPanelWindowSupport::setKeptAbove(QWindow* window, bool above)
{
    window->setFlag(Qt::WindowStaysOnTopHint, above);
}
