#pragma once

// Places where a report passes from one keeper to the next. A build for crash
// trials can be told to die at one of them; in every other build they are nothing.
#ifdef ORVANA_CRASH_POINTS
void crashPoint(const char *name);
#else
inline void crashPoint(const char *) { }
#endif
