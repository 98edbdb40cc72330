#pragma once

class QWidget;

// What window managers say and take by their common properties, and Qt does not pass on.

// From its next show on, the window is on every virtual desktop. Without X11 nothing
// changes.
void showOnAllDesktops(QWidget *window);

// At once, when it is shown: somebody may have sent it to one desktop.
void moveToAllDesktops(const QWidget *window);

// From its next show on, panels and pagers leave the window out.
void keepOutOfTaskbar(QWidget *window);

// True as well where the window manager does not say.
bool isOnCurrentDesktop(const QWidget *window);

// Whether the window that the user works in, of whatever program, fills the screen.
bool isFullScreenWindowActive();
