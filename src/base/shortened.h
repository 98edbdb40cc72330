#pragma once

#include <QString>

// At most this many characters of the text; an ellipsis stands for the rest.
inline QString shortened(const QString &text, int length)
{
    return text.size() > length ? QString(text.left(length) + QChar(0x2026)) : text;
}
