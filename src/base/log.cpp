#include "base/log.h"

Q_LOGGING_CATEGORY(lcStorage, "orvana.storage")
Q_LOGGING_CATEGORY(lcService, "orvana.service")
Q_LOGGING_CATEGORY(lcUpdate, "orvana.update")
Q_LOGGING_CATEGORY(lcTracking, "orvana.tracking")
Q_LOGGING_CATEGORY(lcNotifications, "orvana.notifications")
Q_LOGGING_CATEGORY(lcUi, "orvana.ui")
Q_LOGGING_CATEGORY(lcApp, "orvana.app")
