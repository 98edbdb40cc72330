#pragma once

#include <QString>

// Path of the system configuration file: environment variable ORVANA_CONFIG or the built-in one.
QString systemConfigFile();

// The port that the client connects to, read afresh from the system configuration file.
// 0 when the file names no usable port.
quint16 configuredPort();
