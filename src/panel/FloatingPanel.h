#pragma once

#include "model/Prompt.h"

#include <QPointer>
#include <QQuickItem>
#include <QQuickWindow>
#include <QRegion>
#include <QTimer>

#include <chrono>
#include <functional>
#include <memory>
#include <vector>

class PanelWindowSupport;
class QQmlEngine;

/// The quick panel's window: frameless, above other windows, on every workspace, never in a
/// task bar, draggable by its background, hosting `FloatingPanelView`. It sees every key
/// pressed in it before the focused item does and turns a few of them into its owner's
/// callbacks; everything else reaches the view as usual.
class FloatingPanel : public QQuickWindow {
    Q_OBJECT

public:
    /// Transparent space around the card where its shadows fall, on each side.
    static constexpr int shadowMargin = 200;

    enum class Keyboard { Free, Held };

    /// The view is created in `engine`, which must know the Ravelo module and its singletons.
    /// A panel created for a trigger holds the keyboard (see `holdKeyboard`) before loading
    /// its view, which takes a while.
    explicit FloatingPanel(QQmlEngine* engine, QWindow* parent = nullptr,
                           Keyboard keyboard = Keyboard::Free);
    ~FloatingPanel() override;

    /// A digit key 1 to 9 was pressed while no text field was being edited.
    std::function<void(int)> onNumberKeyPressed;
    /// The copy shortcut was pressed with no text selected.
    std::function<void()> onCopyResultAndClose;
    /// The paste shortcut was pressed while no text field was being edited.
    std::function<void()> onPasteResultAndClose;
    /// Return or keypad Enter was pressed while no text field was being edited.
    std::function<void()> onEnterPressed;
    /// Esc was pressed while no text field was being edited; true keeps the panel open.
    std::function<bool()> onEscPressed;

    /// Places the panel centred on the screen under the pointer, its centre 100 px above the
    /// middle of the available area and wholly inside it, shows it and takes the keyboard
    /// focus with no text field being edited. The strip and the answer start at their
    /// beginnings.
    void centerAndShow();
    /// From a trigger on, keys typed before the panel is shown and focused are the panel's:
    /// they never reach the application that had the focus. Let go once the panel has the
    /// focus, is hidden, `releaseKeyboard` is called, or after three seconds at most.
    void holdKeyboard();
    /// For a trigger that shows nothing after all; keys held so far are dropped.
    void releaseKeyboard();
    /// Lets the application's other windows come over the panel until it is shown again.
    void stepBack();
    /// Says that the answer was copied and is to be pasted by hand, for `noticeDuration`, then
    /// closes. Esc closes at once; other keys do nothing meanwhile.
    void closeAfterCopiedNotice();
    bool showsCopiedNotice() const { return m_noticeTimer.isActive(); }
    static constexpr std::chrono::milliseconds noticeDuration{1000};

    /// The FloatingPanelView item.
    QQuickItem* view() const { return m_view; }
    /// Whether the window has its shadow margin (a compositing manager is running).
    bool hasShadowMargin() const { return m_margin > 0; }
    /// Where the card is, in window coordinates.
    QRectF cardGeometry() const;
    /// The card and the two round buttons under it, in window coordinates: where the panel
    /// takes clicks.
    QRegion inputRegion() const;

    /// Applies the key rules to one key press; true when the key was consumed.
    bool routeKeyDown(const QKeyEvent& event);

signals:
    void promptSelected(const Prompt& prompt);
    void customPromptSubmitted(const QString& text);
    void closeRequested();
    void openPreferencesRequested();
    /// The paste button was clicked.
    void pasteRequested();
    /// The panel was closed (Esc, the owner's `close()`, or the window manager).
    void closed();

protected:
    bool event(QEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void keyReleaseEvent(QKeyEvent* event) override;
    void exposeEvent(QExposeEvent* event) override;

private slots:
    void forwardPromptSelected(const QVariant& prompt);

private:
    void applyCompositing();
    void placeCard(const QRect& area, int cardTop);
    void fitToView();
    void updateShape();
    void focusContent();
    bool keepUntilShown(QKeyEvent* event);
    void setCopiedNoticeShown(bool shown);

    std::unique_ptr<PanelWindowSupport> m_support;
    QPointer<QQuickItem> m_view;
    int m_margin = 0;
    int m_topMargin = 0;
    QRegion m_inputRegion;
    bool m_activationPending = false;
    int m_activationAttempts = 0;
    std::vector<std::unique_ptr<QKeyEvent>> m_keysBeforeShown;
    QTimer m_noticeTimer;
};
