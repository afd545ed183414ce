#include "platform/PanelWindowSupport.h"

#include "platform/null/NullPanelWindowSupport.h"
#include "platform/x11/X11PanelWindowSupport.h"

#include <QGuiApplication>

std::unique_ptr<PanelWindowSupport> PanelWindowSupport::create()
{
    if (QGuiApplication::platformName() == u"xcb") {
        if (auto x11 = X11PanelWindowSupport::create()) {
            return x11;
        }
    }
    return std::make_unique<NullPanelWindowSupport>();
}
