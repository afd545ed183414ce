#pragma once

#include <QString>

/// Qt Quick draws Ravelo's windows with its software scene graph, unless the user picked a
/// renderer through Qt's own variables (QT_QUICK_BACKEND, QMLSCENE_DEVICE, QSG_RHI_BACKEND):
/// the panel is a few rectangles, texts and one painted shadow, which the software renderer
/// redraws in the changed region alone, while OpenGL loads a driver stack that on Mesa's
/// llvmpipe alone costs some 80 MB. Call before the first Qt Quick window is created.
void chooseQuickRenderer();

/// "software" or "rhi": the renderer chooseQuickRenderer() leaves Qt Quick with.
QString quickRendererName();
