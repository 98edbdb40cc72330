#pragma once

#include <QImage>

// The whole virtual desktop, all monitors, in one image; null when it cannot be
// taken.
QImage grabDesktop();
