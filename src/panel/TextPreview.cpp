#include "panel/TextPreview.h"

TextPreview TextPreview::of(const QString& whole)
{
    qsizetype end = std::min(whole.size(), maxLength);
    int lines = 0;
    for (qsizetype i = 0; i < end; ++i) {
        if (whole.at(i) == u'\n' && ++lines == maxLines) {
            end = i;
            break;
        }
    }
    if (end < whole.size() && end > 0 && whole.at(end - 1).isHighSurrogate()) {
        --end;
    }
    if (end == whole.size()) {
        return {whole, 0};
    }
    return {whole.left(end), whole.size() - end};
}
