#include "platform/null/NullPanelWindowSupport.h"

#include <QWindow>

void NullPanelWindowSupport::activate(QWindow* window)
{
    window->requestActivate();
}
