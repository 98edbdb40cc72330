#include "tracking/screengrab.h"

#include "x11/rootwindow.h"

QImage grabDesktop()
{
    return rootWindowScreenshot();
}
