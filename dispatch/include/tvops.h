// Arithmetic and ordering on the platform's timeval, as the dispatcher and
// its timers use it: absolute times and intervals share the one record.
#ifndef KELVANOR_TVOPS_H
#define KELVANOR_TVOPS_H

#include <sys/time.h>

// Sum with one carry or borrow of a second. A negative total keeps a
// negative microsecond part.
timeval operator+(timeval a, timeval b);
// Difference with one borrow or carry of a second, so that the microsecond
// part ends in 0..999999 for operands that are themselves normalised.
timeval operator-(timeval a, timeval b);
// Strict ordering on (seconds, microseconds).
bool operator>(timeval a, timeval b);
bool operator<(timeval a, timeval b);

#endif
