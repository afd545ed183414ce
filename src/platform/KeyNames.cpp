#include "platform/KeyNames.h"

namespace {

struct Modifier {
    char16_t glyph;
    const char* name;
};

// Command is the shortcut modifier (Ctrl here), Option is Alt and Control is the Super key.
constexpr Modifier modifiers[] = {
    {u'⌘', "Ctrl"},
    {u'⇧', "Shift"},
    {u'⌥', "Alt"},
    {u'⌃', "Super"},
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

QString KeyNames::shortcut(const QString& glyphs)
{
    QString text;
    text.reserve(glyphs.size() + 16);
    for (const QChar c : glyphs) {
        if (const char* name = nameOf(c)) {
            text += QLatin1String(name) + QLatin1Char('+');
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
            return QLatin1String(name);
        }
    }
    return glyph;
}
