#include "panel/StreamingText.h"

#include <QQuickTextDocument>
#include <QTextBlockFormat>
#include <QTextCursor>
#include <QTextDocument>

void StreamingText::setDocument(QQuickTextDocument* document)
{
    if (m_document == document) {
        return;
    }
    m_document = document;
    applyBlockFormat();
    updateEmpty();
    emit documentChanged();
}

void StreamingText::setLineSpacing(qreal spacing)
{
    if (qFuzzyCompare(m_lineSpacing, spacing)) {
        return;
    }
    m_lineSpacing = spacing;
    applyBlockFormat();
    emit lineSpacingChanged();
}

void StreamingText::append(const QString& fragment)
{
    QTextDocument* doc = textDocument();
    if (!doc || fragment.isEmpty()) {
        return;
    }
    QTextCursor cursor(doc);
    cursor.movePosition(QTextCursor::End);
    // New blocks take the format of the block the cursor is in, so the line spacing carries
    // over to every paragraph that arrives.
    cursor.insertText(fragment);
    updateEmpty();
}

void StreamingText::reset(const QString& text)
{
    QTextDocument* doc = textDocument();
    if (!doc) {
        return;
    }
    doc->setPlainText(text);
    applyBlockFormat();
    updateEmpty();
}

QTextDocument* StreamingText::textDocument() const
{
    return m_document ? m_document->textDocument() : nullptr;
}

void StreamingText::applyBlockFormat()
{
    QTextDocument* doc = textDocument();
    if (!doc) {
        return;
    }
    QTextBlockFormat format;
    format.setLineHeight(m_lineSpacing, QTextBlockFormat::LineDistanceHeight);
    QTextCursor cursor(doc);
    cursor.select(QTextCursor::Document);
    cursor.mergeBlockFormat(format);
}

void StreamingText::updateEmpty()
{
    QTextDocument* doc = textDocument();
    const bool empty = !doc || doc->isEmpty();
    if (empty == m_empty) {
        return;
    }
    m_empty = empty;
    emit emptyChanged();
}
