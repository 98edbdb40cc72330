#pragma once

#include <QImage>

// A screenshot of all monitors in device pixels. Null without X11 and when it cannot be taken.
QImage rootWindowScreenshot();

// The dots per inch of the user's X resources, 0 when they have none. Uses a connection of its
// own, so that it can be called before the application object exists.
int configuredDpi();
