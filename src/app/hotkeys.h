#pragma once

class TrackingForm;

// Binds the configured hot keys of the whole desktop to the window's slots, until it is gone. The
// log names a key that can't be had.
void bindHotKeys(TrackingForm *window);
