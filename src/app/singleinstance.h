#pragma once

// True when this is the only running instance; the lock is then held until the
// process ends. The application's name must be set.
bool checkUniqueuness();
