#include "panel/FloatingPanel.h"

#include "platform/PanelWindowSupport.h"

#include <QCursor>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QLoggingCategory>
#include <QPainterPath>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickItem>
#include <QRegion>
#include <QScreen>
#include <QTimer>

namespace {

Q_LOGGING_CATEGORY(lcPanel, "ravelo.panel", QtInfoMsg)

constexpr int placementLift = 100;
constexpr qreal cardCornerRadius = 48;
constexpr int activationRetries = 5;
constexpr int activationRetryMs = 100;

bool isTextItem(const QQuickItem* item)
{
    return item && (item->inherits("QQuickTextInput") || item->inherits("QQuickTextEdit"));
}

// A text field is being edited: a text item that takes typing has the focus. Read-only
// texts (the copied text, the answer) can be selected but are not edited.
bool isEditing(const QQuickItem* item)
{
    return isTextItem(item) && !item->property("readOnly").toBool();
}

// Any text that can be selected: text fields and the panel's read-only texts.
bool hasSelection(const QQuickItem* item)
{
    return item && !item->property("selectedText").toString().isEmpty();
}

// The typed characters as a decimal number: an optional sign and ASCII digits, nothing else.
std::optional<int> typedNumber(QStringView text)
{
    if (text.isEmpty()) {
        return std::nullopt;
    }
    bool negative = false;
    if (text.front() == u'+' || text.front() == u'-') {
        negative = text.front() == u'-';
        text = text.mid(1);
    }
    if (text.isEmpty()) {
        return std::nullopt;
    }
    qint64 value = 0;
    for (QChar c : text) {
        if (c < u'0' || c > u'9') {
            return std::nullopt;
        }
        value = std::min<qint64>(value * 10 + (c.unicode() - u'0'), 1000);
    }
    return int(negative ? -value : value);
}

QRectF itemRect(const QQuickItem* root, const char* objectName)
{
    const auto* item = root ? root->findChild<QQuickItem*>(QLatin1String(objectName)) : nullptr;
    return item ? item->mapRectToScene(QRectF(0, 0, item->width(), item->height())) : QRectF();
}

} // namespace

FloatingPanel::FloatingPanel(QQmlEngine* engine, QWindow* parent, Keyboard keyboard)
    : QQuickWindow(parent)
    , m_support(PanelWindowSupport::create())
{
    setTitle(QStringLiteral("Ravelo"));
    setFlags(Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint |
             Qt::NoDropShadowWindowHint);
    QSurfaceFormat surface = format();
    surface.setAlphaBufferSize(8);
    setFormat(surface);
    setColor(Qt::transparent);
    if (keyboard == Keyboard::Held) {
        holdKeyboard();
    }

    m_margin = m_topMargin = m_support->isCompositing() ? shadowMargin : 0;
    QQmlComponent component(engine, QUrl(QStringLiteral("qrc:/Ravelo/FloatingPanelView.qml")));
    QObject* object = component.createWithInitialProperties(
        {{QStringLiteral("margin"), m_margin},
         {QStringLiteral("topMargin"), m_margin},
         {QStringLiteral("shadowsVisible"), m_support->isCompositing()}});
    m_view = qobject_cast<QQuickItem*>(object);
    if (!m_view) {
        qCCritical(lcPanel).noquote() << "cannot create the panel view:" << component.errorString();
        delete object;
        return;
    }
    m_view->setParentItem(contentItem());

    connect(m_view, SIGNAL(promptSelected(QVariant)), this, SLOT(forwardPromptSelected(QVariant)));
    connect(m_view, SIGNAL(customPromptSubmitted(QString)), this,
            SIGNAL(customPromptSubmitted(QString)));
    connect(m_view, SIGNAL(close()), this, SIGNAL(closeRequested()));
    connect(m_view, SIGNAL(openPreferences()), this, SIGNAL(openPreferencesRequested()));
    connect(m_view, SIGNAL(paste()), this, SIGNAL(pasteRequested()));
    connect(m_view, &QQuickItem::implicitWidthChanged, this, &FloatingPanel::fitToView);
    connect(m_view, &QQuickItem::implicitHeightChanged, this, &FloatingPanel::fitToView);
    // The card grows and shrinks inside the window, and the buttons move with its bottom.
    for (const char* name : {"panelCard", "controlButtons"}) {
        if (auto* item = m_view->findChild<QQuickItem*>(QLatin1String(name))) {
            connect(item, &QQuickItem::heightChanged, this, &FloatingPanel::updateShape);
            connect(item, &QQuickItem::yChanged, this, &FloatingPanel::updateShape);
        }
    }
    connect(m_support.get(), &PanelWindowSupport::compositingChanged, this,
            &FloatingPanel::applyCompositing);
    connect(this, &QWindow::activeChanged, this, [this] {
        if (isActive()) {
            m_activationPending = false;
            m_support->releaseKeyboard();
        }
    });
    m_noticeTimer.setSingleShot(true);
    m_noticeTimer.setInterval(noticeDuration);
    connect(&m_noticeTimer, &QTimer::timeout, this, &QWindow::close);
    fitToView();
}

FloatingPanel::~FloatingPanel()
{
    delete m_view;
}

void FloatingPanel::forwardPromptSelected(const QVariant& prompt)
{
    if (prompt.canConvert<Prompt>()) {
        emit promptSelected(prompt.value<Prompt>());
    }
}

QRectF FloatingPanel::cardGeometry() const
{
    return itemRect(m_view, "panelCard");
}

void FloatingPanel::centerAndShow()
{
    QScreen* screen = QGuiApplication::screenAt(QCursor::pos());
    if (!screen) {
        screen = QGuiApplication::primaryScreen();
    }
    if (!screen) {
        return;
    }
    if (screen != this->screen()) {
        setScreen(screen);
    }
    setCopiedNoticeShown(false);
    const QRect area = screen->availableGeometry();
    if (m_view) {
        m_view->setProperty("availableHeight", area.height());
        QMetaObject::invokeMethod(m_view, "resetScrolling");
        if (!isVisible()) {
            QMetaObject::invokeMethod(m_view, "settle");
        }
    }
    fitToView();
    // The window is as tall as the panel can grow; the panel itself is placed by the height
    // it takes once the new text is in, and kept wholly inside the work area.
    const qreal panelHeight = m_view ? m_view->property("settledHeight").toReal() : height();
    qreal top = area.y() + area.height() / 2.0 - panelHeight / 2.0 - placementLift;
    top = std::max<qreal>(area.y(), std::min(top, area.y() + area.height() - panelHeight));
    placeCard(area, qRound(top));

    m_support->prepareToMap(this);
    m_support->setKeptAbove(this, true);
    // Keys typed between the trigger and now come in the order they were typed, unless the
    // hold ran out before the panel could show.
    const bool held = m_support->holdsKeyboard();
    // Keys typed before the window manager gets round to focusing the panel are its own.
    holdKeyboard();
    show();
    for (auto& key : m_keysBeforeShown) {
        if (held) {
            QCoreApplication::postEvent(this, key.release());
        }
    }
    m_keysBeforeShown.clear();
    if (QGuiApplication::platformName() != u"offscreen") {
        raise();
    }
    m_activationPending = true;
    m_activationAttempts = 0;
    if (isExposed()) {
        m_support->activate(this);
    }
    focusContent();
}

void FloatingPanel::holdKeyboard()
{
    if (!isActive()) {
        m_support->holdKeyboard(this);
    }
}

void FloatingPanel::releaseKeyboard()
{
    m_support->releaseKeyboard();
    m_keysBeforeShown.clear();
}

void FloatingPanel::stepBack()
{
    if (isVisible()) {
        m_support->setKeptAbove(this, false);
    }
}

void FloatingPanel::closeAfterCopiedNotice()
{
    if (!isVisible()) {
        return;
    }
    focusContent();
    setCopiedNoticeShown(true);
    m_noticeTimer.start();
    qCDebug(lcPanel, "Copied notice shown");
}

void FloatingPanel::setCopiedNoticeShown(bool shown)
{
    if (!shown) {
        m_noticeTimer.stop();
    }
    if (m_view) {
        m_view->setProperty("copiedNoticeShown", shown);
    }
}

bool FloatingPanel::routeKeyDown(const QKeyEvent& event)
{
    if (!isVisible() || !(isActive() || m_support->holdsKeyboard())) {
        return false;
    }
    const QQuickItem* focus = activeFocusItem();
    const bool editing = isEditing(focus);
    const Qt::KeyboardModifiers modifiers = event.modifiers();
    const int key = event.key();

    if (m_noticeTimer.isActive()) {
        // The panel is on its way out: only Esc hurries it.
        if (key == Qt::Key_Escape) {
            close();
        }
        return true;
    }
    if (key == Qt::Key_Escape) {
        if (editing) {
            return false;
        }
        if (!(onEscPressed && onEscPressed())) {
            close();
        }
        return true;
    }
    if (key == Qt::Key_C && (modifiers & Qt::ControlModifier) &&
        !(modifiers & (Qt::ShiftModifier | Qt::AltModifier))) {
        if (hasSelection(focus)) {
            return false;
        }
        if (onCopyResultAndClose) {
            onCopyResultAndClose();
        }
        return true;
    }
    if (key == Qt::Key_V && (modifiers & Qt::ControlModifier) &&
        !(modifiers & (Qt::ShiftModifier | Qt::AltModifier))) {
        if (editing) {
            return false;
        }
        if (onPasteResultAndClose) {
            onPasteResultAndClose();
        }
        return true;
    }
    if (key == Qt::Key_Comma && (modifiers & Qt::ControlModifier) &&
        !(modifiers & (Qt::ShiftModifier | Qt::AltModifier))) {
        emit openPreferencesRequested();
        return true;
    }
    if (key == Qt::Key_Return || key == Qt::Key_Enter) {
        if (editing) {
            return false;
        }
        focusContent();
        if (onEnterPressed) {
            onEnterPressed();
        }
        return true;
    }
    if (editing) {
        return false;
    }
    if (modifiers & (Qt::ControlModifier | Qt::AltModifier | Qt::MetaModifier)) {
        return false;
    }
    const std::optional<int> number = typedNumber(event.text());
    if (!number || *number < 1 || *number > 9) {
        return false;
    }
    focusContent();
    if (onNumberKeyPressed) {
        onNumberKeyPressed(*number);
    }
    return true;
}

bool FloatingPanel::event(QEvent* event)
{
    if (event->type() == QEvent::Hide) {
        releaseKeyboard();
    }
    if (event->type() == QEvent::Expose && isExposed() && !m_inputRegion.isEmpty()) {
        // A window manager that frames the window takes the input region over to its frame
        // only when it changes after the window is managed: set it again once shown.
        m_support->setInputRegion(this, m_inputRegion);
    }
    if (event->type() == QEvent::Close) {
        // Closing only hides: the panel, its native window and its callbacks stay for the
        // next trigger.
        const bool wasVisible = isVisible();
        setCopiedNoticeShown(false);
        hide();
        event->accept();
        if (wasVisible) {
            emit closed();
        }
        return true;
    }
    return QQuickWindow::event(event);
}

bool FloatingPanel::keepUntilShown(QKeyEvent* event)
{
    if (isVisible() || !m_support->holdsKeyboard()) {
        return false;
    }
    m_keysBeforeShown.emplace_back(event->clone());
    event->accept();
    return true;
}

void FloatingPanel::keyPressEvent(QKeyEvent* event)
{
    if (keepUntilShown(event)) {
        return;
    }
    if (routeKeyDown(*event)) {
        event->accept();
        return;
    }
    QQuickWindow::keyPressEvent(event);
}

void FloatingPanel::keyReleaseEvent(QKeyEvent* event)
{
    if (keepUntilShown(event)) {
        return;
    }
    QQuickWindow::keyReleaseEvent(event);
}

void FloatingPanel::exposeEvent(QExposeEvent* event)
{
    QQuickWindow::exposeEvent(event);
    if (m_activationPending && isExposed()) {
        m_support->activate(this);
        // Window managers may still be busy mapping the window; ask again a few times.
        QTimer::singleShot(activationRetryMs, this, [this] {
            if (m_activationPending && isVisible() && !isActive() &&
                ++m_activationAttempts < activationRetries) {
                m_support->activate(this);
            }
        });
    }
}

void FloatingPanel::applyCompositing()
{
    const int margin = m_support->isCompositing() ? shadowMargin : 0;
    if (!m_view || margin == m_margin) {
        return;
    }
    const int cardTop = y() + m_topMargin;
    m_margin = margin;
    m_view->setProperty("shadowsVisible", m_support->isCompositing());
    m_view->setProperty("margin", margin);
    if (isVisible() && screen()) {
        // The card stays where it is on the screen; the window grows or shrinks around it.
        placeCard(screen()->availableGeometry(), cardTop);
    } else {
        fitToView();
    }
}

void FloatingPanel::placeCard(const QRect& area, int cardTop)
{
    // Window managers keep a window's top edge inside the work area, so the margin above
    // the card is only as tall as the space there.
    m_topMargin = std::clamp(cardTop - area.y(), 0, m_margin);
    if (m_view) {
        m_view->setProperty("topMargin", m_topMargin);
    }
    fitToView();
    const int x = qRound(area.x() + area.width() / 2.0 - width() / 2.0);
    setGeometry(x, cardTop - m_topMargin, width(), height());
}

void FloatingPanel::fitToView()
{
    if (!m_view) {
        return;
    }
    const int width = qCeil(m_view->implicitWidth());
    const int height = qCeil(m_view->implicitHeight());
    m_view->setSize(QSizeF(width, height));
    if (width > 0 && height > 0 && (width != this->width() || height != this->height())) {
        if (isVisible()) {
            // The top edge stays where it is; the panel grows or shrinks downward.
            setGeometry(x(), y(), width, height);
        } else {
            resize(width, height);
        }
    }
    updateShape();
}

QRegion FloatingPanel::inputRegion() const
{
    QPainterPath card;
    card.addRoundedRect(cardGeometry(), cardCornerRadius, cardCornerRadius);
    QRegion region(card.toFillPolygon().toPolygon());
    for (const char* name : {"closeButton", "preferencesButton"}) {
        region += QRegion(itemRect(m_view, name).toAlignedRect(), QRegion::Ellipse);
    }
    return region;
}

void FloatingPanel::updateShape()
{
    if (!m_view) {
        return;
    }
    const QRegion region = inputRegion();
    if (m_margin > 0) {
        // The shadows are drawn in the margin, but clicks there belong to the windows below.
        if (!mask().isEmpty()) {
            setMask(QRegion());
        }
        if (region != m_inputRegion) {
            m_inputRegion = region;
            m_support->setInputRegion(this, region);
        }
        return;
    }
    // Without a compositor transparent pixels would show black: cut the window to the card
    // and the two round buttons.
    if (!m_inputRegion.isEmpty()) {
        m_inputRegion = QRegion();
        m_support->setInputRegion(this, QRegion());
    }
    if (region != mask()) {
        setMask(region);
    }
}

void FloatingPanel::focusContent()
{
    // A field that had the focus when the panel was last closed keeps it within the view
    // and would take it back as soon as the window is active again.
    if (QQuickItem* inner = m_view ? m_view->scopedFocusItem() : nullptr) {
        inner->setFocus(false);
    }
    if (QQuickItem* focused = activeFocusItem(); focused && focused != contentItem()) {
        focused->setFocus(false);
    }
    contentItem()->forceActiveFocus();
}
