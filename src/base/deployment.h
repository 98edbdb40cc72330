#pragma once

#include <QKeySequence>
#include <QString>
#include <QStringList>

// Values that whoever deploys the client sets. First found wins: environment
// variable, key of the system configuration file, value built in.
namespace Deployment {

// An origin without a trailing slash, such as "https://127.0.0.1:8443".
// (ORVANA_SERVICE_URL, "service-url")
QString serviceUrl();
// Organisation name and domain of the program.
QString serviceHost();
// The folder in which ".orvana" is made. (ORVANA_STORAGE_ROOT)
QString storageRoot();
// Path of the system configuration file, INI. (ORVANA_CONFIG)
QString configFile();
// False: every certificate of the service is accepted. ("verify-certificates")
bool verifyCertificates();
// Whether a journal of the user's minutes is kept. ("journal")
bool keepsJournal();
// Hot keys of the whole desktop, empty without one. ("start-shortcut", "stop-shortcut")
QKeySequence startShortcut();
QKeySequence stopShortcut();
// Configured values that are probably mistakes, one line each.
QStringList problems();

} // namespace Deployment
