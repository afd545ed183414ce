#include "panel/TextRunView.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QImage>
#include <QKeyEvent>
#include <QPainter>
#include <QQuickWindow>
#include <QSGImageNode>
#include <QSGNode>
#include <QTextBoundaryFinder>
#include <QTextLine>

#include <algorithm>
#include <cmath>

namespace {

/// The first stretch of a paragraph laid out at a time; doubled while it holds too few lines.
constexpr int layoutWindow = 4096;
/// How far around a position word boundaries are looked for.
constexpr int wordReach = 256;

} // namespace

TextRunView::TextRunView(QQuickItem* parent)
    : QQuickItem(parent)
{
    setFlag(ItemHasContents);
    setAcceptedMouseButtons(Qt::LeftButton);
#if QT_CONFIG(cursor)
    setCursor(Qt::IBeamCursor);
#endif
}

TextRunView::~TextRunView() = default;

void TextRunView::setFont(const QFont& font)
{
    if (m_font == font) {
        return;
    }
    m_font = font;
    relayoutAll();
    emit fontChanged();
}

void TextRunView::setColor(const QColor& color)
{
    if (m_color == color) {
        return;
    }
    m_color = color;
    ++m_styleVersion;
    update();
    emit colorChanged();
}

void TextRunView::setSelectionColor(const QColor& color)
{
    if (m_selectionColor == color) {
        return;
    }
    m_selectionColor = color;
    ++m_styleVersion;
    update();
    emit selectionColorChanged();
}

void TextRunView::setSelectedTextColor(const QColor& color)
{
    if (m_selectedTextColor == color) {
        return;
    }
    m_selectedTextColor = color;
    ++m_styleVersion;
    update();
    emit selectedTextColorChanged();
}

void TextRunView::setLineSpacing(qreal spacing)
{
    if (qFuzzyCompare(m_lineSpacing, spacing)) {
        return;
    }
    m_lineSpacing = spacing;
    relayoutAll();
    emit lineSpacingChanged();
}

void TextRunView::setViewportY(qreal y)
{
    if (qFuzzyCompare(m_viewportY, y)) {
        return;
    }
    m_viewportY = y;
    update();
    emit viewportChanged();
}

void TextRunView::setViewportHeight(qreal height)
{
    if (qFuzzyCompare(m_viewportHeight, height)) {
        return;
    }
    m_viewportHeight = height;
    update();
    emit viewportChanged();
}

QString TextRunView::selectedText() const
{
    return m_text.mid(selectionStart(), selectionEnd() - selectionStart());
}

void TextRunView::append(const QString& fragment)
{
    if (fragment.isEmpty()) {
        return;
    }
    const bool wasEmpty = isEmpty();
    m_text += fragment;
    m_dirty = true;
    if (window()) {
        polish();
    } else {
        ensureLayout();
    }
    emit textChanged();
    updateEmpty(wasEmpty);
}

void TextRunView::reset(const QString& text)
{
    const bool wasEmpty = isEmpty();
    m_text = text;
    setSelection(0, 0);
    relayoutAll();
    emit textChanged();
    updateEmpty(wasEmpty);
}

void TextRunView::select(int start, int end)
{
    setSelection(start, end);
}

void TextRunView::selectAll()
{
    setSelection(0, int(m_text.size()));
}

void TextRunView::deselect()
{
    setSelection(m_cursor, m_cursor);
}

void TextRunView::copy()
{
    if (selectionStart() < selectionEnd()) {
        QGuiApplication::clipboard()->setText(selectedText());
    }
}

int TextRunView::positionAt(qreal x, qreal y)
{
    ensureLayout();
    if (m_runs.empty() || y < 0) {
        return 0;
    }
    const Run& last = m_runs.back();
    if (y >= last.y + last.height) {
        return int(m_text.size());
    }
    const qsizetype index = runAt(y);
    const Run& run = m_runs[index];
    QTextLayout& layout = runLayout(index);
    const qreal inRun = y - run.y;
    for (int i = 0; i < layout.lineCount(); ++i) {
        const QTextLine line = layout.lineAt(i);
        if (inRun < line.y() + line.height() + m_lineSpacing || i == layout.lineCount() - 1) {
            return run.start + line.xToCursor(x);
        }
    }
    return run.start;
}

QStringList TextRunView::lines()
{
    ensureLayout();
    QStringList lines;
    for (qsizetype i = 0; i < qsizetype(m_runs.size()); ++i) {
        QTextLayout& layout = runLayout(i);
        for (int l = 0; l < layout.lineCount(); ++l) {
            const QTextLine line = layout.lineAt(l);
            lines << layout.text().mid(line.textStart(), line.textLength());
        }
    }
    return lines;
}

void TextRunView::geometryChange(const QRectF& newGeometry, const QRectF& oldGeometry)
{
    QQuickItem::geometryChange(newGeometry, oldGeometry);
    if (!qFuzzyCompare(newGeometry.width(), m_layoutWidth)) {
        relayoutAll();
    }
}

void TextRunView::updatePolish()
{
    ensureLayout();
}

void TextRunView::relayoutAll()
{
    m_runs.clear();
    m_layouts.clear();
    m_dirty = true;
    ensureLayout();
    update();
}

void TextRunView::ensureLayout()
{
    if (!m_dirty || width() <= 0) {
        return;
    }
    m_dirty = false;
    m_layoutWidth = width();
    // Everything before the last run is final: only the last one takes what was appended.
    layoutFrom(m_runs.empty() ? 0 : qsizetype(m_runs.size()) - 1);
    update();
}

void TextRunView::layoutFrom(qsizetype runIndex)
{
    int position = 0;
    qreal y = 0;
    if (runIndex < qsizetype(m_runs.size())) {
        position = m_runs[runIndex].start;
        y = m_runs[runIndex].y;
        m_runs.erase(m_runs.begin() + runIndex, m_runs.end());
        std::erase_if(m_layouts, [runIndex](const auto& entry) { return entry.first >= runIndex; });
    }
    const int size = int(m_text.size());
    while (true) {
        int end = int(m_text.indexOf(u'\n', position));
        if (end < 0) {
            end = size;
        }
        layoutParagraph(position, end, y);
        if (end >= size) {
            break;
        }
        position = end + 1;
    }
    setImplicitHeight(y);
}

// Lays out the paragraph from `start` (its start or a run boundary inside it) to `end`, a stretch
// at a time, cutting a run after every `linesPerRun` lines. A line is final once two more
// follow it, or once the stretch reaches the paragraph's end; a run is cut only where the
// paragraph laid out whole would have the same line break, and the last run keeps between
// `linesPerRun` and twice that many lines, just as when the paragraph grew piece by piece.
void TextRunView::layoutParagraph(int start, int end, qreal& y)
{
    const bool continues = start > 0 && m_text.at(start - 1) != u'\n' && !m_runs.empty();
    const Qt::LayoutDirection direction =
        continues
            ? m_runs.back().direction
            : (QStringView(m_text).mid(start, std::min(end - start, layoutWindow)).isRightToLeft()
                   ? Qt::RightToLeft
                   : Qt::LeftToRight);
    int position = start;
    int window = layoutWindow;
    while (true) {
        int stop = end - position > window ? position + window : end;
        if (stop < end && m_text.at(stop - 1).isHighSurrogate()) {
            --stop;
        }
        const bool complete = stop == end;
        QTextLayout layout(m_text.mid(position, stop - position));
        layoutLines(layout, direction);
        const int count = layout.lineCount();
        const int settled = complete ? count : count - 2;
        const int frozen = std::max(0, settled / linesPerRun - 1);
        if (!complete && frozen == 0) {
            window *= 2;
            continue;
        }
        const auto heightOf = [&](int first, int last) {
            qreal height = 0;
            for (int i = first; i < last; ++i) {
                height += layout.lineAt(i).height() + m_lineSpacing;
            }
            return height;
        };
        for (int r = 0; r < frozen; ++r) {
            const QTextLine first = layout.lineAt(r * linesPerRun);
            const QTextLine next = layout.lineAt((r + 1) * linesPerRun);
            const qreal height = heightOf(r * linesPerRun, (r + 1) * linesPerRun);
            addRun(position + first.textStart(), position + next.textStart(), direction, y, height,
                   linesPerRun);
            y += height;
        }
        const int rest = frozen * linesPerRun;
        const int restStart = position + (count > rest ? layout.lineAt(rest).textStart() : 0);
        if (complete) {
            const qreal height = heightOf(rest, count);
            addRun(restStart, end, direction, y, height, count - rest);
            y += height;
            return;
        }
        position = restStart;
        window = layoutWindow;
    }
}

void TextRunView::addRun(int start, int end, Qt::LayoutDirection direction, qreal y, qreal height,
                         int lineCount)
{
    Run run;
    run.start = start;
    run.length = end - start;
    run.y = y;
    run.height = height;
    run.lineCount = lineCount;
    run.direction = direction;
    run.version = m_nextVersion++;
    m_runs.push_back(run);
}

QTextOption TextRunView::option(Qt::LayoutDirection direction) const
{
    QTextOption option;
    option.setWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
    option.setTextDirection(direction);
    return option;
}

qreal TextRunView::layoutLines(QTextLayout& layout, Qt::LayoutDirection direction) const
{
    layout.setFont(m_font);
    layout.setTextOption(option(direction));
    layout.setCacheEnabled(true);
    qreal y = 0;
    layout.beginLayout();
    for (QTextLine line = layout.createLine(); line.isValid(); line = layout.createLine()) {
        line.setLineWidth(m_layoutWidth);
        line.setPosition(QPointF(0, y));
        y += line.height() + m_lineSpacing;
    }
    layout.endLayout();
    return y;
}

QTextLayout& TextRunView::runLayout(qsizetype index)
{
    std::unique_ptr<QTextLayout>& layout = m_layouts[index];
    if (!layout) {
        const Run& run = m_runs[index];
        layout = std::make_unique<QTextLayout>(m_text.mid(run.start, run.length));
        layoutLines(*layout, run.direction);
    }
    return *layout;
}

qsizetype TextRunView::runAt(qreal y) const
{
    const auto after = std::upper_bound(m_runs.begin(), m_runs.end(), y,
                                        [](qreal value, const Run& run) { return value < run.y; });
    return std::max<qsizetype>(0, (after - m_runs.begin()) - 1);
}

qsizetype TextRunView::runContaining(int position) const
{
    const auto after =
        std::upper_bound(m_runs.begin(), m_runs.end(), position,
                         [](int value, const Run& run) { return value < run.start; });
    return std::max<qsizetype>(0, (after - m_runs.begin()) - 1);
}

void TextRunView::visibleRuns(qsizetype& first, qsizetype& last) const
{
    first = 0;
    last = qsizetype(m_runs.size()) - 1;
    if (m_runs.empty() || m_viewportHeight < 0) {
        return;
    }
    first = runAt(m_viewportY);
    last = runAt(m_viewportY + m_viewportHeight);
}

QSGNode* TextRunView::updatePaintNode(QSGNode* node, UpdatePaintNodeData* data)
{
    Q_UNUSED(data);
    if (!node) {
        // The tiles hang under a transform node, not a plain one: the software renderer places
        // a node added later by the position and clip it keeps for the node's parent, and it
        // keeps them for transform, clip and opacity nodes only. Under a plain node a tile
        // added after the first frame lands at the window's corner, unclipped.
        node = new QSGTransformNode;
        m_tiles.clear();
    }
    qsizetype first = 0;
    qsizetype last = -1;
    if (m_layoutWidth > 0) {
        visibleRuns(first, last);
    }
    for (auto it = m_tiles.begin(); it != m_tiles.end();) {
        const bool stale = it->first < first || it->first > last ||
                           it->first >= qsizetype(m_runs.size()) ||
                           it->second.version != m_runs[it->first].version;
        if (stale) {
            node->removeChildNode(it->second.node);
            delete it->second.node;
            it = m_tiles.erase(it);
        } else {
            ++it;
        }
    }
    const qreal ratio = window()->effectiveDevicePixelRatio();
    for (qsizetype i = first; i <= last; ++i) {
        const Run& run = m_runs[i];
        const int selectedFrom = std::clamp(selectionStart() - run.start, 0, run.length);
        const int selectedTo = std::clamp(selectionEnd() - run.start, 0, run.length);
        Tile& tile = m_tiles[i];
        if (tile.node && tile.style == m_styleVersion && tile.selectionStart == selectedFrom &&
            tile.selectionEnd == selectedTo) {
            continue;
        }
        const qreal top = std::floor(run.y);
        const qreal bottom = std::ceil(run.y + run.height);
        QImage image(QSize(std::max(1, int(std::ceil(width() * ratio))),
                           std::max(1, int(std::ceil((bottom - top) * ratio)))),
                     QImage::Format_ARGB32_Premultiplied);
        image.setDevicePixelRatio(ratio);
        image.fill(Qt::transparent);
        {
            QPainter painter(&image);
            painter.setPen(m_color);
            QList<QTextLayout::FormatRange> selections;
            if (selectedFrom < selectedTo) {
                QTextLayout::FormatRange range;
                range.start = selectedFrom;
                range.length = selectedTo - selectedFrom;
                range.format.setBackground(m_selectionColor);
                range.format.setForeground(m_selectedTextColor);
                selections << range;
            }
            runLayout(i).draw(&painter, QPointF(0, run.y - top), selections);
        }
        // The software renderer reads a node's texture as soon as the node is added.
        const bool added = !tile.node;
        if (added) {
            tile.node = window()->createImageNode();
            tile.node->setOwnsTexture(true);
        }
        tile.node->setTexture(window()->createTextureFromImage(image));
        tile.node->setRect(QRectF(0, top, image.width() / ratio, image.height() / ratio));
        if (added) {
            node->appendChildNode(tile.node);
        }
        tile.version = run.version;
        tile.style = m_styleVersion;
        tile.selectionStart = selectedFrom;
        tile.selectionEnd = selectedTo;
    }
    m_drawnRuns.store(int(m_tiles.size()));
    // Laid-out runs out of view are dropped; they are laid out again when they come back.
    const qsizetype lastRun = qsizetype(m_runs.size()) - 1;
    std::erase_if(m_layouts, [&](const auto& entry) {
        return (entry.first < first - 1 || entry.first > last + 1) && entry.first != lastRun;
    });
    return node;
}

void TextRunView::setSelection(int anchor, int cursor)
{
    const int size = int(m_text.size());
    anchor = std::clamp(anchor, 0, size);
    cursor = std::clamp(cursor, 0, size);
    if (anchor == m_anchor && cursor == m_cursor) {
        return;
    }
    const bool hadSelection = m_anchor != m_cursor;
    m_anchor = anchor;
    m_cursor = cursor;
    if (hadSelection || anchor != cursor) {
        update();
        emit selectionChanged();
    }
}

void TextRunView::mousePressEvent(QMouseEvent* event)
{
    if (event->button() != Qt::LeftButton) {
        event->ignore();
        return;
    }
    forceActiveFocus(Qt::MouseFocusReason);
    const int position = positionAt(event->position().x(), event->position().y());
    m_selectingWords = false;
    setSelection(event->modifiers() & Qt::ShiftModifier ? m_anchor : position, position);
    setKeepMouseGrab(true);
    event->accept();
}

void TextRunView::mouseDoubleClickEvent(QMouseEvent* event)
{
    if (event->button() != Qt::LeftButton) {
        event->ignore();
        return;
    }
    const int position = positionAt(event->position().x(), event->position().y());
    m_wordAnchorStart = wordStart(position);
    m_wordAnchorEnd = wordEnd(position);
    m_selectingWords = true;
    setSelection(m_wordAnchorStart, m_wordAnchorEnd);
    setKeepMouseGrab(true);
    event->accept();
}

void TextRunView::mouseMoveEvent(QMouseEvent* event)
{
    if (!(event->buttons() & Qt::LeftButton)) {
        event->ignore();
        return;
    }
    const int position = positionAt(event->position().x(), event->position().y());
    if (!m_selectingWords) {
        setSelection(m_anchor, position);
    } else if (position < m_wordAnchorStart) {
        setSelection(m_wordAnchorEnd, wordStart(position));
    } else {
        setSelection(m_wordAnchorStart, std::max(m_wordAnchorEnd, wordEnd(position)));
    }
    event->accept();
}

void TextRunView::mouseReleaseEvent(QMouseEvent* event)
{
    setKeepMouseGrab(false);
    QClipboard* clipboard = QGuiApplication::clipboard();
    if (selectionStart() < selectionEnd() && clipboard->supportsSelection()) {
        clipboard->setText(selectedText(), QClipboard::Selection);
    }
    event->accept();
}

void TextRunView::keyPressEvent(QKeyEvent* event)
{
    if (event->matches(QKeySequence::SelectAll)) {
        selectAll();
        return;
    }
    if (event->matches(QKeySequence::Copy)) {
        if (selectionStart() < selectionEnd()) {
            copy();
        } else {
            event->ignore();
        }
        return;
    }
    bool handled = false;
    const int position = moved(m_cursor, event, handled);
    if (!handled) {
        event->ignore();
        return;
    }
    const bool extend = event->modifiers() & Qt::ShiftModifier;
    setSelection(extend ? m_anchor : position, position);
}

// Where a movement key takes the cursor; `handled` tells whether the key is one.
int TextRunView::moved(int position, QKeyEvent* event, bool& handled)
{
    ensureLayout();
    handled = true;
    const auto is = [event](QKeySequence::StandardKey move, QKeySequence::StandardKey select) {
        return event->matches(move) || event->matches(select);
    };
    const int size = int(m_text.size());
    if (is(QKeySequence::MoveToNextChar, QKeySequence::SelectNextChar)) {
        const int step = position + 1 < size && m_text.at(position).isHighSurrogate() ? 2 : 1;
        return std::min(size, position + step);
    }
    if (is(QKeySequence::MoveToPreviousChar, QKeySequence::SelectPreviousChar)) {
        const int step = position > 1 && m_text.at(position - 1).isLowSurrogate() ? 2 : 1;
        return std::max(0, position - step);
    }
    if (is(QKeySequence::MoveToNextWord, QKeySequence::SelectNextWord)) {
        return wordEnd(std::min(size, position + 1));
    }
    if (is(QKeySequence::MoveToPreviousWord, QKeySequence::SelectPreviousWord)) {
        return wordStart(std::max(0, position - 1));
    }
    if (is(QKeySequence::MoveToStartOfDocument, QKeySequence::SelectStartOfDocument)) {
        return 0;
    }
    if (is(QKeySequence::MoveToEndOfDocument, QKeySequence::SelectEndOfDocument)) {
        return size;
    }
    const bool startOfLine = is(QKeySequence::MoveToStartOfLine, QKeySequence::SelectStartOfLine);
    const bool endOfLine = is(QKeySequence::MoveToEndOfLine, QKeySequence::SelectEndOfLine);
    const bool nextLine = is(QKeySequence::MoveToNextLine, QKeySequence::SelectNextLine);
    const bool previousLine =
        is(QKeySequence::MoveToPreviousLine, QKeySequence::SelectPreviousLine);
    if (m_runs.empty() || !(startOfLine || endOfLine || nextLine || previousLine)) {
        handled = false;
        return position;
    }
    qsizetype index = runContaining(position);
    const Run run = m_runs[index];
    const int inRun = std::clamp(position - run.start, 0, run.length);
    QTextLayout* layout = &runLayout(index);
    const QTextLine line = layout->lineForTextPosition(inRun);
    if (!line.isValid()) {
        return position;
    }
    if (startOfLine) {
        return run.start + line.textStart();
    }
    if (endOfLine) {
        const int end = line.textStart() + line.textLength();
        const bool wrapped = end < run.length && end > line.textStart();
        return run.start + (wrapped ? end - 1 : end);
    }
    const qreal x = line.cursorToX(inRun);
    int target = line.lineNumber() + (nextLine ? 1 : -1);
    if (target < 0) {
        if (index == 0) {
            return 0;
        }
        --index;
        layout = &runLayout(index);
        target = layout->lineCount() - 1;
    } else if (target >= layout->lineCount()) {
        if (index + 1 >= qsizetype(m_runs.size())) {
            return size;
        }
        ++index;
        layout = &runLayout(index);
        target = 0;
    }
    return m_runs[index].start + layout->lineAt(target).xToCursor(x);
}

int TextRunView::wordStart(int position) const
{
    const int from = std::max(0, position - wordReach);
    const int to = std::min(int(m_text.size()), position + wordReach);
    QTextBoundaryFinder finder(QTextBoundaryFinder::Word, m_text.constData() + from, to - from);
    finder.setPosition(position - from);
    if (finder.isAtBoundary() && finder.boundaryReasons() & QTextBoundaryFinder::StartOfItem) {
        return position;
    }
    const qsizetype previous = finder.toPreviousBoundary();
    return previous < 0 ? from : from + int(previous);
}

int TextRunView::wordEnd(int position) const
{
    const int from = std::max(0, position - wordReach);
    const int to = std::min(int(m_text.size()), position + wordReach);
    QTextBoundaryFinder finder(QTextBoundaryFinder::Word, m_text.constData() + from, to - from);
    finder.setPosition(position - from);
    if (finder.isAtBoundary() && finder.boundaryReasons() & QTextBoundaryFinder::EndOfItem) {
        return position;
    }
    const qsizetype next = finder.toNextBoundary();
    return next < 0 ? to : from + int(next);
}

void TextRunView::updateEmpty(bool wasEmpty)
{
    if (wasEmpty != isEmpty()) {
        emit emptyChanged();
    }
}
