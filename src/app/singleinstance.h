#pragma once

// False when another process holds the lock of the running instance; otherwise it is held until
// the process ends, if it can be acquired at all. Returns within seconds. The application's
// name must be set.
bool checkUniqueuness();
