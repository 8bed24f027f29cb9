// timeval arithmetic and ordering.
#include "tvops.h"

namespace {
constexpr long kOneSecond = 1000000;
}

timeval operator+(timeval a, timeval b) {
    timeval sum;
    sum.tv_sec = a.tv_sec + b.tv_sec;
    sum.tv_usec = a.tv_usec + b.tv_usec;
    if (sum.tv_usec >= kOneSecond) {
        sum.tv_usec -= kOneSecond;
        sum.tv_sec += 1;
    } else if (sum.tv_sec > 0 && sum.tv_usec < 0) {
        sum.tv_usec += kOneSecond;
        sum.tv_sec -= 1;
    }
    return sum;
}

timeval operator-(timeval a, timeval b) {
    timeval delta;
    delta.tv_sec = a.tv_sec - b.tv_sec;
    delta.tv_usec = a.tv_usec - b.tv_usec;
    if (delta.tv_usec < 0) {
        delta.tv_usec += kOneSecond;
        delta.tv_sec -= 1;
    } else if (delta.tv_usec >= kOneSecond) {
        delta.tv_usec -= kOneSecond;
        delta.tv_sec += 1;
    }
    return delta;
}

bool operator>(timeval a, timeval b) {
    return a.tv_sec > b.tv_sec || (a.tv_sec == b.tv_sec && a.tv_usec > b.tv_usec);
}

bool operator<(timeval a, timeval b) {
    return a.tv_sec < b.tv_sec || (a.tv_sec == b.tv_sec && a.tv_usec < b.tv_usec);
}
