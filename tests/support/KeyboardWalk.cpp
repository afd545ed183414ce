#include "KeyboardWalk.h"

#include <QAccessible>
#include <QQuickItem>
#include <QQuickWindow>
#include <QTest>

#include <algorithm>

namespace KeyboardWalk {
namespace {

bool isOperable(QAccessible::Role role)
{
    switch (role) {
    case QAccessible::Button:
    case QAccessible::CheckBox:
    case QAccessible::RadioButton:
    case QAccessible::ComboBox:
    case QAccessible::EditableText:
    case QAccessible::PageTabList:
    case QAccessible::List:
    case QAccessible::Link:
    case QAccessible::Slider:
    case QAccessible::SpinBox:
        return true;
    default:
        return false;
    }
}

void collect(QAccessibleInterface* node, QList<QQuickItem*>& controls)
{
    for (int i = 0; i < node->childCount(); ++i) {
        QAccessibleInterface* child = node->child(i);
        if (!child || child->state().invisible) {
            continue;
        }
        auto* item = qobject_cast<QQuickItem*>(child->object());
        // A link in a text is the text's part; the text takes the focus.
        if (!item && child->role() == QAccessible::Link) {
            item = qobject_cast<QQuickItem*>(node->object());
        }
        if (item && item->isVisible() && item->isEnabled() && isOperable(child->role())) {
            controls.append(item);
            continue;
        }
        collect(child, controls);
    }
}

bool focusIsIn(const QQuickItem* item, const QQuickItem* focus)
{
    return focus && (focus == item || item->isAncestorOf(focus));
}

QList<QQuickItem*> tabRound(QQuickWindow* window)
{
    QList<QQuickItem*> focused;
    for (int i = 0; i < 60; ++i) {
        QTest::keyClick(window, Qt::Key_Tab);
        QQuickItem* focus = window->activeFocusItem();
        // Focus scopes (a list) take the focus back to where it was inside them, so the
        // round may come back to any of the items it passed.
        if (focused.contains(focus)) {
            return focused;
        }
        focused.append(focus);
    }
    return {};
}

} // namespace

QList<QQuickItem*> operableControls(QQuickWindow* window)
{
    QAccessible::setActive(true);
    QList<QQuickItem*> controls;
    if (QAccessibleInterface* root = QAccessible::queryAccessibleInterface(window)) {
        collect(root, controls);
    }
    return controls;
}

QString tabMisses(QQuickWindow* window)
{
    const QList<QQuickItem*> round = tabRound(window);
    QList<QQuickItem*> missed = operableControls(window);
    missed.removeIf([&round](const QQuickItem* control) {
        return std::any_of(round.begin(), round.end(), [control](const QQuickItem* focus) {
            return focusIsIn(control, focus);
        });
    });
    QStringList names;
    for (const QQuickItem* item : round.isEmpty() ? operableControls(window) : missed) {
        names << QString::fromLatin1(item->metaObject()->className()) + u' ' + item->objectName() +
                     u' ' + item->property("text").toString();
    }
    return names.join(QStringLiteral(", "));
}

bool tabTo(QQuickWindow* window, const QString& objectName)
{
    const QQuickItem* item = window->contentItem()->findChild<QQuickItem*>(objectName);
    for (int i = 0; item && i < 60; ++i) {
        if (focusIsIn(item, window->activeFocusItem())) {
            return true;
        }
        QTest::keyClick(window, Qt::Key_Tab);
    }
    return false;
}

} // namespace KeyboardWalk
