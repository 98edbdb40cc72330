#pragma once

// True when this is the only running instance; the lock is then held until the process
// ends. A lock that cannot be acquired although no process holds it does not count.
// Returns within seconds. The application's name must be set.
bool checkUniqueuness();
