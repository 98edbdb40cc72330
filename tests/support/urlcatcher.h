#pragma once

#include "texts.h"

#include <QDesktopServices>
#include <QUrl>

// Stands in for the desktop's programs: keeps what would have been opened.
class UrlCatcher final : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(UrlCatcher)

public:
    UrlCatcher()
    {
        for (const char *scheme : {"http", "https", "file", "javascript", "data", "qrc", "mailto"})
            QDesktopServices::setUrlHandler(s(scheme), this, "open"); // ends with this object
    }

    QStringList opened;

public slots:
    void open(const QUrl &url) { opened.append(url.toString()); }
};
