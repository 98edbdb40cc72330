#pragma once

#include <QDir>
#include <QFile>
#include <QFileInfo>

// Null when the file cannot be read.
inline QByteArray contentsOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// A new file in place of an old one, with the folders above it.
inline bool writeFile(const QString &path, const QByteArray &bytes)
{
    QFile::remove(path);
    QFile file(path);
    return QDir().mkpath(QFileInfo(path).path()) && file.open(QIODevice::WriteOnly)
        && file.write(bytes) == bytes.size();
}
