#pragma once

#include <QColor>
#include <QFont>
#include <QQuickItem>
#include <QString>
#include <QTextLayout>
#include <QtQml/qqmlregistration.h>

#include <atomic>
#include <memory>
#include <unordered_map>
#include <vector>

class QSGImageNode;

/// Large, read-only, selectable text that grows at its end, at a cost per change that depends
/// on what changed and what is visible rather than on the length of the text.
///
/// The text is laid out in runs: each paragraph is cut after every `linesPerRun` lines, and
/// a run never changes once lines follow it, so appending lays out only the last run again.
/// Each run is drawn into a texture of its own; only the runs inside the viewport have one,
/// and only a run whose text or selection changed is drawn again. The line breaks are those
/// of the paragraph laid out whole, so text set at once and the same text streamed in pieces
/// show alike.
class TextRunView : public QQuickItem {
    Q_OBJECT
    QML_ELEMENT
    Q_PROPERTY(QString text READ text NOTIFY textChanged)
    Q_PROPERTY(bool empty READ isEmpty NOTIFY emptyChanged)
    Q_PROPERTY(QFont font READ font WRITE setFont NOTIFY fontChanged)
    Q_PROPERTY(QColor color READ color WRITE setColor NOTIFY colorChanged)
    Q_PROPERTY(QColor selectionColor READ selectionColor WRITE setSelectionColor NOTIFY
                   selectionColorChanged)
    Q_PROPERTY(QColor selectedTextColor READ selectedTextColor WRITE setSelectedTextColor NOTIFY
                   selectedTextColorChanged)
    /// Extra space below every line, in pixels.
    Q_PROPERTY(qreal lineSpacing READ lineSpacing WRITE setLineSpacing NOTIFY lineSpacingChanged)
    /// The part of the item that a scrolling parent shows, in the item's coordinates; a
    /// negative height means all of it.
    Q_PROPERTY(qreal viewportY READ viewportY WRITE setViewportY NOTIFY viewportChanged)
    Q_PROPERTY(
        qreal viewportHeight READ viewportHeight WRITE setViewportHeight NOTIFY viewportChanged)
    Q_PROPERTY(int selectionStart READ selectionStart NOTIFY selectionChanged)
    Q_PROPERTY(int selectionEnd READ selectionEnd NOTIFY selectionChanged)
    Q_PROPERTY(QString selectedText READ selectedText NOTIFY selectionChanged)

public:
    static constexpr int linesPerRun = 8;

    explicit TextRunView(QQuickItem* parent = nullptr);
    ~TextRunView() override;

    const QString& text() const { return m_text; }
    bool isEmpty() const { return m_text.isEmpty(); }

    QFont font() const { return m_font; }
    void setFont(const QFont& font);
    QColor color() const { return m_color; }
    void setColor(const QColor& color);
    QColor selectionColor() const { return m_selectionColor; }
    void setSelectionColor(const QColor& color);
    QColor selectedTextColor() const { return m_selectedTextColor; }
    void setSelectedTextColor(const QColor& color);
    qreal lineSpacing() const { return m_lineSpacing; }
    void setLineSpacing(qreal spacing);
    qreal viewportY() const { return m_viewportY; }
    void setViewportY(qreal y);
    qreal viewportHeight() const { return m_viewportHeight; }
    void setViewportHeight(qreal height);

    int selectionStart() const { return std::min(m_anchor, m_cursor); }
    int selectionEnd() const { return std::max(m_anchor, m_cursor); }
    QString selectedText() const;
    /// How many runs have a texture: what the viewport shows, whatever the text's length.
    Q_INVOKABLE int drawnRuns() const { return m_drawnRuns.load(); }

    /// Adds `fragment` at the end; the fragments of one frame are laid out together just
    /// before it is drawn.
    Q_INVOKABLE void append(const QString& fragment);
    /// Replaces the whole text and lays it out at once.
    Q_INVOKABLE void reset(const QString& text);
    Q_INVOKABLE void select(int start, int end);
    Q_INVOKABLE void selectAll();
    Q_INVOKABLE void deselect();
    /// Puts the selected text on the clipboard.
    Q_INVOKABLE void copy();
    /// The text position nearest to a point of the item.
    Q_INVOKABLE int positionAt(qreal x, qreal y);
    /// The texts of the lines as laid out, in order.
    Q_INVOKABLE QStringList lines();

signals:
    void textChanged();
    void emptyChanged();
    void fontChanged();
    void colorChanged();
    void selectionColorChanged();
    void selectedTextColorChanged();
    void lineSpacingChanged();
    void viewportChanged();
    void selectionChanged();

protected:
    void geometryChange(const QRectF& newGeometry, const QRectF& oldGeometry) override;
    void updatePolish() override;
    QSGNode* updatePaintNode(QSGNode* node, UpdatePaintNodeData* data) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;

private:
    struct Run {
        int start = 0;
        int length = 0;
        qreal y = 0;
        qreal height = 0;
        int lineCount = 0;
        Qt::LayoutDirection direction = Qt::LeftToRight;
        /// Changes whenever the run is laid out anew, so that its texture is drawn again.
        quint64 version = 0;
    };

    /// A run's texture in the scene graph, kept while the run is in view.
    struct Tile {
        QSGImageNode* node = nullptr;
        quint64 version = 0;
        quint64 style = 0;
        int selectionStart = 0;
        int selectionEnd = 0;
    };

    void relayoutAll();
    void ensureLayout();
    void layoutFrom(qsizetype runIndex);
    void layoutParagraph(int start, int end, qreal& y);
    void addRun(int start, int end, Qt::LayoutDirection direction, qreal y, qreal height,
                int lineCount);
    QTextOption option(Qt::LayoutDirection direction) const;
    qreal layoutLines(QTextLayout& layout, Qt::LayoutDirection direction) const;
    QTextLayout& runLayout(qsizetype index);
    qsizetype runAt(qreal y) const;
    qsizetype runContaining(int position) const;
    void visibleRuns(qsizetype& first, qsizetype& last) const;
    void setSelection(int anchor, int cursor);
    int moved(int position, QKeyEvent* event, bool& handled);
    int wordStart(int position) const;
    int wordEnd(int position) const;
    void updateEmpty(bool wasEmpty);

    QString m_text;
    std::vector<Run> m_runs;
    std::unordered_map<qsizetype, std::unique_ptr<QTextLayout>> m_layouts;
    std::unordered_map<qsizetype, Tile> m_tiles;
    QFont m_font;
    QColor m_color = Qt::black;
    QColor m_selectionColor = QColor(0, 120, 215);
    QColor m_selectedTextColor = Qt::white;
    qreal m_lineSpacing = 0;
    qreal m_viewportY = 0;
    qreal m_viewportHeight = -1;
    qreal m_layoutWidth = -1;
    int m_anchor = 0;
    int m_cursor = 0;
    std::atomic<int> m_drawnRuns = 0;
    quint64 m_nextVersion = 1;
    quint64 m_styleVersion = 1;
    bool m_dirty = false;
    bool m_selectingWords = false;
    int m_wordAnchorStart = 0;
    int m_wordAnchorEnd = 0;
};
