#pragma once

#include <QDebug>
#include <QLoggingCategory>

// One category for each layer that logs: "orvana.storage" and so on.
Q_DECLARE_LOGGING_CATEGORY(lcStorage)
Q_DECLARE_LOGGING_CATEGORY(lcService)
Q_DECLARE_LOGGING_CATEGORY(lcUpdate)
Q_DECLARE_LOGGING_CATEGORY(lcTracking)
Q_DECLARE_LOGGING_CATEGORY(lcNotifications)
Q_DECLARE_LOGGING_CATEGORY(lcUi)
Q_DECLARE_LOGGING_CATEGORY(lcApp)
