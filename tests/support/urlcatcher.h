#pragma once

#include "texts.h"

#include <QDesktopServices>
#include <QObject>
#include <QStringList>
#include <QUrl>

// Stands in for the desktop's programs: keeps what would have been opened.
class UrlCatcher final : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(UrlCatcher)

public:
    UrlCatcher()
    {
        for (const QString &scheme : m_schemes)
            QDesktopServices::setUrlHandler(scheme, this, "open");
    }
    ~UrlCatcher() override
    {
        for (const QString &scheme : m_schemes)
            QDesktopServices::unsetUrlHandler(scheme);
    }

    QStringList opened;

public slots:
    void open(const QUrl &url) { opened.append(url.toString()); }

private:
    const QStringList m_schemes{s("http"), s("https"), s("file"),  s("javascript"),
                                s("data"), s("qrc"),   s("mailto")};
};
