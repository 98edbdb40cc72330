#pragma once

#include "texts.h"

#include <QProcess>

/// An X server without a window manager, to be killed at will.
class VirtualDisplay final
{
public:
    explicit VirtualDisplay(const QStringList &arguments = {})
    {
        m_server.start(s("Xvfb"), texts({"-displayfd", "1", "-nolisten", "tcp", "-noreset"}) + arguments);
        while (!m_server.canReadLine() && m_server.waitForReadyRead()) { }
        m_name = QLatin1Char(':') + QString::fromLatin1(m_server.readLine()).trimmed();
    }

    QString name() const { return m_name; }
    void kill()
    {
        m_server.kill();
        m_server.waitForFinished();
    }

private:
    QProcess m_server;
    QString m_name;
};
