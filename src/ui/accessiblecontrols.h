#pragma once

// What screen readers learn of the windows' own controls: those that react to Enter
// can be pressed, and a popup is an alert. Call once, before the first window.
void installAccessibleControls();
