#pragma once

#include <QString>

// Path of the system configuration file: environment variable ORVANA_CONFIG or the built-in one.
QString systemConfigFile();

// The port that the client connects to, read from the system configuration file at each call.
// 0 when the file has no usable port.
quint16 configuredPort();
