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

Q_LOGGING_CATEGORY(lcPanel, "ravelo.panel")

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

bool hasSelection(const QQuickItem* item)
{
    return isTextItem(item) && !item->property("selectedText").toString().isEmpty();
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

FloatingPanel::FloatingPanel(QQmlEngine* engine, QWindow* parent)
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

    m_margin = m_support->isCompositing() ? shadowMargin : 0;
    QQmlComponent component(engine, QUrl(QStringLiteral("qrc:/Ravelo/FloatingPanelView.qml")));
    QObject* object = component.createWithInitialProperties(
        {{QStringLiteral("margin"), m_margin},
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
    connect(m_view, &QQuickItem::implicitWidthChanged, this, &FloatingPanel::fitToView);
    connect(m_view, &QQuickItem::implicitHeightChanged, this, &FloatingPanel::fitToView);
    connect(m_support.get(), &PanelWindowSupport::compositingChanged, this,
            &FloatingPanel::applyCompositing);
    connect(this, &QWindow::activeChanged, this, [this] {
        if (isActive()) {
            m_activationPending = false;
        }
    });
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
    fitToView();
    const QRect area = screen->availableGeometry();
    const QSize extent = size();
    const int x = qRound(area.x() + area.width() / 2.0 - extent.width() / 2.0);
    const int y = qRound(area.y() + area.height() / 2.0 - extent.height() / 2.0 - placementLift);
    setGeometry(x, y, extent.width(), extent.height());

    m_support->prepareToMap(this);
    show();
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

bool FloatingPanel::routeKeyDown(const QKeyEvent& event)
{
    if (!isVisible() || !isActive()) {
        return false;
    }
    const QQuickItem* focus = activeFocusItem();
    const bool editing = isEditing(focus);
    const Qt::KeyboardModifiers modifiers = event.modifiers();
    const int key = event.key();

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
    if (event->type() == QEvent::Close) {
        // Closing only hides: the panel, its native window and its callbacks stay for the
        // next trigger.
        const bool wasVisible = isVisible();
        hide();
        event->accept();
        if (wasVisible) {
            emit closed();
        }
        return true;
    }
    return QQuickWindow::event(event);
}

void FloatingPanel::keyPressEvent(QKeyEvent* event)
{
    if (routeKeyDown(*event)) {
        event->accept();
        return;
    }
    QQuickWindow::keyPressEvent(event);
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
    const int shift = margin - m_margin;
    m_margin = margin;
    if (isVisible()) {
        // The card stays where it is on the screen; the window grows or shrinks around it.
        setPosition(x() - shift, y() - shift);
    }
    m_view->setProperty("shadowsVisible", m_support->isCompositing());
    m_view->setProperty("margin", margin);
    fitToView();
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
    updateMask();
}

void FloatingPanel::updateMask()
{
    if (m_margin > 0) {
        if (!mask().isEmpty()) {
            setMask(QRegion());
        }
        return;
    }
    // Without a compositor transparent pixels would show black: cut the window to the card
    // and the two round buttons.
    QPainterPath card;
    card.addRoundedRect(cardGeometry(), cardCornerRadius, cardCornerRadius);
    QRegion region(card.toFillPolygon().toPolygon());
    for (const char* name : {"closeButton", "preferencesButton"}) {
        region += QRegion(itemRect(m_view, name).toAlignedRect(), QRegion::Ellipse);
    }
    setMask(region);
}

void FloatingPanel::focusContent()
{
    if (QQuickItem* focused = activeFocusItem(); focused && focused != contentItem()) {
        focused->setFocus(false);
    }
    contentItem()->forceActiveFocus();
}
