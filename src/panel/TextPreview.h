#pragma once

#include <QString>

/// The start of a text that may be far too long to lay out: at most `maxLength` UTF-16 units
/// and `maxLines` lines, never ending inside a surrogate pair, with how much was left out.
struct TextPreview {
    static constexpr qsizetype maxLength = 4000;
    static constexpr int maxLines = 200;

    QString text;
    /// Characters of the whole text that the preview leaves out.
    qsizetype leftOut = 0;

    static TextPreview of(const QString& whole);
};
