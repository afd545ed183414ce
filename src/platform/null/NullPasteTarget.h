#pragma once

#include "platform/PasteTarget.h"

#include <QTimer>

/// Sessions where no application may type into another (Wayland, offscreen): the answer
/// can only be copied.
class NullPasteTarget : public PasteTarget {
    Q_OBJECT

public:
    using PasteTarget::PasteTarget;

    bool canPaste() const override { return false; }
    void rememberActiveWindow() override {}
    bool hasTarget() override { return false; }
    void paste() override
    {
        QTimer::singleShot(0, this, [this] {
            emit failed(QStringLiteral("this session lets no application type into another"));
        });
    }
};
