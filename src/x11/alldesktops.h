#pragma once

class QWidget;

// From its next show on, the window is on every virtual desktop. Without X11 nothing
// changes.
void showOnAllDesktops(QWidget *window);
