#pragma once

#include <QObject>
#include <QString>
#include <QtQmlIntegration/qqmlintegration.h>

/// Names of keys as this platform writes them. Texts are written with the Mac glyphs
/// (⌘ ⇧ ⌥ ⌃) and shown through here: on Linux "⌘," reads "Ctrl+," and "⌘⇧Space" reads
/// "Ctrl+Shift+Space".
class KeyNames : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_SINGLETON

public:
    using QObject::QObject;

    /// Replaces each modifier glyph by the platform's name and a plus sign.
    Q_INVOKABLE static QString shortcut(const QString& glyphs);

    /// The name of the key the glyph stands for ("⌘" → "Ctrl").
    Q_INVOKABLE static QString modifierName(const QString& glyph);

    /// A key's English name ("Space", "Return") in the user's language; other texts (letters,
    /// digits) come back as they are.
    static QString keyName(const char* name);
};
