#pragma once

#include "localservice/request.h"

namespace localservice {

// Every change must carry it; a new one at each start of the service.
QByteArray makeToken();
// Compares in constant time.
bool isToken(const QByteArray &given, const QByteArray &token);

// No other web page may post here, and the control page is shown under the service's own address
// only. Returns the reason in Russian when the request breaks that, otherwise nothing.
QString whyForeign(const RecordedRequest &request, int port, bool isForControlPage);

} // namespace localservice
