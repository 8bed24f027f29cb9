// The round-trip estimator: Jacobson's smoothed mean and deviation in
// seconds, with Karn's rule for retransmitted exchanges.
#include "tbrtt.h"

#include <cstdio>
#include <iostream>

const int TBrtt::RXTMIN = 2;
const int TBrtt::RXTMAX = 20;
const int TBrtt::MAXNREXMT = 4;

namespace {
const int kBackoff[5] = {1, 2, 4, 8, 16};

double seconds(const timeval& tv) { return tv.tv_sec * 1000000.0 + tv.tv_usec; }
}  // namespace

TBrtt::~TBrtt() {}

void TBrtt::reset() {
    valid = 1;
    nrexmt = 0;
    rtt = srtt = 0;
    rttdev = 1.5f;
    currto = nextTimeout = 0;
    _start = _stop = timeval{0, 0};
}

int TBrtt::start() {
    if (nrexmt > 0) {
        // The factors apply to the time-out already multiplied; the clock
        // of the first send stands.
        currto *= kBackoff[nrexmt];
        if (currto > RXTMAX) currto = RXTMAX;
        return currto;
    }
    if (gettimeofday(&_start, nullptr) < 0) {
        std::perror("gettimeofday:");
        std::cerr << "TBrtt::start: gettimeofday error" << std::endl;
    }
    if (nextTimeout > 0) {
        currto = nextTimeout;
        nextTimeout = 0;
        return currto;
    }
    int t = static_cast<int>(srtt + 2.0 * rttdev + 0.5);
    if (t < RXTMIN) t = RXTMIN;
    if (t > RXTMAX) t = RXTMAX;
    currto = t;
    return currto;
}

void TBrtt::stop() {
    if (nrexmt > 0) {
        nextTimeout = currto;
        return;
    }
    nextTimeout = 0;
    if (gettimeofday(&_stop, nullptr) < 0) {
        std::perror("gettimeofday:");
        std::cerr << "TBrtt::stop: gettimeofday error" << std::endl;
    }
    rtt = static_cast<float>((seconds(_stop) - seconds(_start)) / 1000000.0);
    double err = static_cast<float>(rtt - srtt);
    srtt = static_cast<float>(srtt + err / 8.0);
    if (err < 0) err = -err;
    rttdev = static_cast<float>(rttdev + (err - rttdev) / 4.0);
}

void TBrtt::printOn(std::ostream& os) const {
    os << " rtt = " << rtt << ", srtt = " << srtt << ", rttdev = " << rttdev
       << ", currto = " << currto << "\n";
}
