#pragma once

#include "localservice/request.h"

namespace localservice {

// What every form of the control page has to send back; another one at each start of the service.
QByteArray makeToken();
// Takes the same time wherever the two differ.
bool isToken(const QByteArray &given, const QByteArray &token);

// Nobody else's web page may send a form here, and the control page is shown under the service's
// own address only. The reason in Russian when the request breaks that, otherwise empty.
QString whyForeign(const RecordedRequest &request, int port, bool isForControlPage);

} // namespace localservice
