#pragma once

// True when this is the only running instance; the lock is then held until the
// process ends. One that cannot be taken, although no process holds it, keeps nobody
// out. Returns within seconds. The application's name must be set.
bool checkUniqueuness();
