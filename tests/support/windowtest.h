#pragma once

#include "app/application.h"

#include <QDesktopServices>
#include <QFile>
#include <QObject>
#include <QStringList>
#include <QUrl>

// Windows look and measure as in the program.
inline void useApplicationStyle()
{
    registerResources();
    QFile sheet(QStringLiteral(":/qss/main.qss"));
    if (!sheet.open(QIODevice::ReadOnly))
        qFatal("no style sheet");
    qApp->setStyleSheet(QString::fromUtf8(sheet.readAll()));
}

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
    const QStringList m_schemes{QStringLiteral("http"),       QStringLiteral("https"), QStringLiteral("file"),
                                QStringLiteral("javascript"), QStringLiteral("data"),  QStringLiteral("qrc"),
                                QStringLiteral("mailto")};
};
