#pragma once

#include <QImage>

// A screenshot of all monitors in device pixels. Null without X11 and when it cannot be taken.
QImage rootWindowScreenshot();

// Whether the X server that DISPLAY names lets this program in. Needs no application object.
bool isXServerReachable();

// The dots per inch of the user's X resources, 0 when they have none. Uses a connection of its
// own, so that it can be called before the application object exists.
int configuredDpi();
