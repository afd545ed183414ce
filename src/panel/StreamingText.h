#pragma once

#include <QObject>
#include <QPointer>
#include <QQuickTextDocument>
#include <QString>
#include <QtQml/qqmlregistration.h>

class QTextDocument;

/// Feeds a TextEdit's document piece by piece, so that a streamed answer costs time in
/// proportion to each fragment rather than to the whole text, and keeps the extra space
/// between lines that a TextEdit cannot set by itself.
class StreamingText : public QObject {
    Q_OBJECT
    QML_ELEMENT
    Q_PROPERTY(QQuickTextDocument* document READ document WRITE setDocument NOTIFY documentChanged)
    /// Extra space between two lines, in pixels.
    Q_PROPERTY(qreal lineSpacing READ lineSpacing WRITE setLineSpacing NOTIFY lineSpacingChanged)
    Q_PROPERTY(bool empty READ isEmpty NOTIFY emptyChanged)

public:
    using QObject::QObject;

    QQuickTextDocument* document() const { return m_document; }
    void setDocument(QQuickTextDocument* document);

    qreal lineSpacing() const { return m_lineSpacing; }
    void setLineSpacing(qreal spacing);

    bool isEmpty() const { return m_empty; }

    /// Adds the fragment at the end of the document.
    Q_INVOKABLE void append(const QString& fragment);
    /// Replaces the whole document.
    Q_INVOKABLE void reset(const QString& text);

signals:
    void documentChanged();
    void lineSpacingChanged();
    void emptyChanged();

private:
    QTextDocument* textDocument() const;
    void applyBlockFormat();
    void updateEmpty();

    QPointer<QQuickTextDocument> m_document;
    qreal m_lineSpacing = 0;
    bool m_empty = true;
};
