#pragma once

#include <QMetaMethod>
#include <QObject>
#include <QPointer>
#include <QQuickTextDocument>
#include <QString>
#include <QTimer>
#include <QtQml/qqmlregistration.h>

class QQuickItem;
class QTextDocument;

/// Feeds a TextEdit's document piece by piece, so that a streamed answer costs time in
/// proportion to each fragment rather than to the whole text, and keeps the extra space
/// between lines that a TextEdit cannot set by itself.
///
/// Fragments are gathered and inserted together once the event loop is free again, so a
/// burst of fragments costs one insertion and the answer shows at most one frame late.
/// Once the answer is long, an insertion tells the TextEdit only about the new text: left to
/// itself it would rebuild the glyphs of the whole answer for every change. A full update
/// follows once the stream pauses.
class StreamingText : public QObject {
    Q_OBJECT
    QML_ELEMENT
    Q_PROPERTY(QQuickTextDocument* document READ document WRITE setDocument NOTIFY documentChanged)
    /// Extra space between two lines, in pixels.
    Q_PROPERTY(qreal lineSpacing READ lineSpacing WRITE setLineSpacing NOTIFY lineSpacingChanged)
    /// Whether there is no text, counting fragments not inserted yet.
    Q_PROPERTY(bool empty READ isEmpty NOTIFY emptyChanged)

public:
    /// From this length on, insertions only tell the TextEdit about the new text.
    static constexpr int partialUpdateLength = 4096;
    /// How long the stream must pause before the TextEdit gets its full update.
    static constexpr int settleDelayMs = 500;

    explicit StreamingText(QObject* parent = nullptr);

    QQuickTextDocument* document() const { return m_document; }
    void setDocument(QQuickTextDocument* document);

    qreal lineSpacing() const { return m_lineSpacing; }
    void setLineSpacing(qreal spacing);

    bool isEmpty() const { return m_empty; }

    /// Adds the fragment at the end of the document, with the next batch.
    Q_INVOKABLE void append(const QString& fragment);
    /// Replaces the whole document; fragments not inserted yet are dropped.
    Q_INVOKABLE void reset(const QString& text);
    /// Inserts the fragments gathered so far now.
    Q_INVOKABLE void flush();

signals:
    void documentChanged();
    void lineSpacingChanged();
    void emptyChanged();

private:
    QTextDocument* textDocument() const;
    void findEditHooks();
    void insertPending(QTextDocument* doc);
    void settle();
    void applyBlockFormat();
    void updateEmpty();

    QPointer<QQuickTextDocument> m_document;
    QPointer<QQuickItem> m_edit;
    QMetaMethod m_contentsChange;
    QMetaMethod m_updateSize;
    QMetaMethod m_textChanged;
    QString m_pending;
    QTimer m_flushTimer;
    QTimer m_settleTimer;
    qreal m_lineSpacing = 0;
    bool m_empty = true;
};
