#include "panel/StreamingText.h"

#include <QLoggingCategory>
#include <QQuickItem>
#include <QQuickTextDocument>
#include <QSignalBlocker>
#include <QTextBlockFormat>
#include <QTextCursor>
#include <QTextDocument>

namespace {

Q_LOGGING_CATEGORY(lcPanelText, "ravelo.panel", QtWarningMsg)

QMetaMethod method(const QObject* object, const char* signature)
{
    const QMetaObject* meta = object->metaObject();
    const int index = meta->indexOfMethod(signature);
    return index < 0 ? QMetaMethod() : meta->method(index);
}

} // namespace

StreamingText::StreamingText(QObject* parent)
    : QObject(parent)
{
    m_flushTimer.setSingleShot(true);
    m_flushTimer.setInterval(0);
    connect(&m_flushTimer, &QTimer::timeout, this, &StreamingText::flush);
    m_settleTimer.setSingleShot(true);
    m_settleTimer.setInterval(settleDelayMs);
    connect(&m_settleTimer, &QTimer::timeout, this, &StreamingText::settle);
}

void StreamingText::setDocument(QQuickTextDocument* document)
{
    if (m_document == document) {
        return;
    }
    m_document = document;
    m_pending.clear();
    m_flushTimer.stop();
    m_settleTimer.stop();
    if (QTextDocument* doc = textDocument()) {
        // The text is read-only: an undo history would only grow with every fragment.
        doc->setUndoRedoEnabled(false);
    }
    findEditHooks();
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
    if (!textDocument() || fragment.isEmpty()) {
        return;
    }
    m_pending += fragment;
    m_flushTimer.start();
    updateEmpty();
}

void StreamingText::reset(const QString& text)
{
    m_pending.clear();
    m_flushTimer.stop();
    m_settleTimer.stop();
    QTextDocument* doc = textDocument();
    if (!doc) {
        updateEmpty();
        return;
    }
    doc->setPlainText(text);
    applyBlockFormat();
    updateEmpty();
}

void StreamingText::flush()
{
    m_flushTimer.stop();
    QTextDocument* doc = textDocument();
    if (!doc || m_pending.isEmpty()) {
        m_pending.clear();
        return;
    }
    insertPending(doc);
    m_pending.clear();
    updateEmpty();
}

void StreamingText::insertPending(QTextDocument* doc)
{
    QTextCursor cursor(doc);
    cursor.movePosition(QTextCursor::End);
    const int position = cursor.position();
    const bool partial = m_edit && m_contentsChange.isValid() && m_updateSize.isValid() &&
                         m_textChanged.isValid() && position >= partialUpdateLength;
    if (!partial) {
        // New blocks take the format of the block the cursor is in, so the line spacing
        // carries over to every paragraph that arrives.
        cursor.insertText(m_pending);
        return;
    }
    {
        // Unannounced, the change only reaches the layout; the TextEdit then learns that the
        // end of the text changed, rather than that all of it did.
        const QSignalBlocker blocker(doc);
        cursor.insertText(m_pending);
    }
    const int added = cursor.position() - position;
    m_contentsChange.invoke(m_edit.data(), Qt::DirectConnection, Q_ARG(int, position),
                            Q_ARG(int, 0), Q_ARG(int, added));
    m_updateSize.invoke(m_edit.data(), Qt::DirectConnection);
    m_settleTimer.start();
}

void StreamingText::settle()
{
    if (m_edit && m_textChanged.isValid()) {
        m_textChanged.invoke(m_edit.data(), Qt::DirectConnection);
    }
}

QTextDocument* StreamingText::textDocument() const
{
    return m_document ? m_document->textDocument() : nullptr;
}

void StreamingText::findEditHooks()
{
    m_edit = m_document ? qobject_cast<QQuickItem*>(m_document->parent()) : nullptr;
    m_contentsChange = m_updateSize = m_textChanged = QMetaMethod();
    if (!m_edit) {
        return;
    }
    m_contentsChange = method(m_edit, "q_contentsChange(int,int,int)");
    m_updateSize = method(m_edit, "updateSize()");
    m_textChanged = method(m_edit, "q_textChanged()");
    if (!m_contentsChange.isValid() || !m_updateSize.isValid() || !m_textChanged.isValid()) {
        qCDebug(lcPanelText) << "this TextEdit takes every fragment as a change of all its text";
    }
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
    const bool empty = !doc || (doc->isEmpty() && m_pending.isEmpty());
    if (empty == m_empty) {
        return;
    }
    m_empty = empty;
    emit emptyChanged();
}
