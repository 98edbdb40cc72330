#pragma once

#include <QImage>

// Everything on all monitors, pixel by pixel whatever the scale of the windows. Null
// without X11 and when it cannot be taken.
QImage rootWindowPicture();

// The dots per inch that the user's X resources ask for, 0 when they ask for none. By a
// connection of its own: to be asked before the application object exists.
int configuredDpi();
