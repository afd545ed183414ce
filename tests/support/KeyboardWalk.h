#pragma once

#include <QList>

class QQuickItem;
class QQuickWindow;

/// Walking a window with the keyboard alone, as someone who uses no mouse does, checked
/// against the controls the window's accessibility tree lists.
namespace KeyboardWalk {

/// The controls a user operates (buttons, fields, drop-downs, check boxes, tab bars, lists,
/// links), as the window's accessibility tree has them, visible and enabled ones only. What is
/// inside a drop-down, a tab bar or a list is left out: they take the focus as one.
QList<QQuickItem*> operableControls(QQuickWindow* window);

/// The operable controls that a round of Tab never focuses, neither themselves nor inside,
/// by class, name and text: empty when Tab reaches them all.
QString tabMisses(QQuickWindow* window);

/// Presses Tab until the item of that object name or something inside it has the focus; false
/// after a round.
bool tabTo(QQuickWindow* window, const QString& objectName);

} // namespace KeyboardWalk
