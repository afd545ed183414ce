#include "platform/KeyNames.h"

#include <QCoreApplication>

namespace {

struct Modifier {
    char16_t glyph;
    const char* name;
};

// Command is the shortcut modifier (Ctrl here), Option is Alt and Control is the Super key.
// The names are those printed on the user's keyboard, so they are translated ("Strg").
constexpr Modifier modifiers[] = {
    {u'⌘', QT_TRANSLATE_NOOP("KeyNames", "Ctrl")},
    {u'⇧', QT_TRANSLATE_NOOP("KeyNames", "Shift")},
    {u'⌥', QT_TRANSLATE_NOOP("KeyNames", "Alt")},
    {u'⌃', QT_TRANSLATE_NOOP("KeyNames", "Super")},
};

const char* nameOf(QChar c)
{
    for (const Modifier& modifier : modifiers) {
        if (c.unicode() == modifier.glyph) {
            return modifier.name;
        }
    }
    return nullptr;
}

} // namespace

QString KeyNames::keyName(const char* name)
{
    return QCoreApplication::translate("KeyNames", name);
}

QString KeyNames::shortcut(const QString& glyphs)
{
    QString text;
    text.reserve(glyphs.size() + 16);
    for (const QChar c : glyphs) {
        if (const char* name = nameOf(c)) {
            text += keyName(name) + QLatin1Char('+');
        } else {
            text += c;
        }
    }
    return text;
}

QString KeyNames::modifierName(const QString& glyph)
{
    if (glyph.size() == 1) {
        if (const char* name = nameOf(glyph.front())) {
            return keyName(name);
        }
    }
    return glyph;
}
