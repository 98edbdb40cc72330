#pragma once

#include <QByteArray>
#include <QMap>
#include <QString>
#include <QVariant>

// An INI file of these values, byte for byte as QSettings would write it: keys up to a slash
// are sections, the others are in [General].
QByteArray settingsText(const QMap<QString, QVariant> &values);
