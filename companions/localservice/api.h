#pragma once

#include "localservice/journal.h"
#include "localservice/request.h"
#include "localservice/world.h"

namespace localservice {

// Answers a request of the client: lists, reports, screenshots, details, deadline requests, the
// version description and the two plain pages. Unknown paths get status 404.
Reply answerClient(const RecordedRequest &request, const World &world, Journal &journal);

// What the client gets for a wrong login or password, byte for byte.
QByteArray invalidCredentialsBody();

} // namespace localservice
