#pragma once

#include <QString>

// What is accepted from the desktop, whatever it claims to send.
constexpr qint64 kMaxScreenshotPixels = 100'000'000;

constexpr bool isScreenshotSize(qint64 width, qint64 height)
{
    return width > 0 && height > 0 && width <= kMaxScreenshotPixels && height <= kMaxScreenshotPixels / width;
}

// For the user, when the desktop did not do what it had promised.
inline QString noScreenshotText()
{
    return QStringLiteral("Рабочий стол не передал снимок экрана. Если это повторится, обратитесь в "
                          "техподдержку.");
}
