#pragma once

class QWidget;

// Properties that window managers share and Qt does not offer. Without X11 nothing happens.

// Puts the window on every virtual desktop whenever it is shown from now on.
void showOnAllDesktops(QWidget *window);

// Does so at once if the window is visible: the user may have moved it to one desktop.
void moveToAllDesktops(const QWidget *window);

// From its next show on, panels and pagers leave the window out.
void keepOutOfTaskbar(QWidget *window);

// Also true when the window manager does not say.
bool isOnCurrentDesktop(const QWidget *window);

// Whether the active window, of any program, fills the screen.
bool isFullScreenWindowActive();

// Whether windows come to stand where programs move them; also true without a window manager.
bool canMoveWindows();
