#pragma once

#include "platform/PanelWindowSupport.h"

/// For platforms where Qt's own window handling is all there is (Wayland, offscreen): the
/// compositor always blends, and focus goes through `QWindow::requestActivate`.
class NullPanelWindowSupport : public PanelWindowSupport {
    Q_OBJECT

public:
    using PanelWindowSupport::PanelWindowSupport;

    bool isCompositing() const override { return true; }
    void prepareToMap(QWindow*) override {}
    void activate(QWindow* window) override;
    void setKeptAbove(QWindow* window, bool above) override;
    void setInputRegion(QWindow*, const QRegion&) override {}
};
