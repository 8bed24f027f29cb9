// TBrtt: round-trip estimator of a request/reply exchange. It gives the
// time-out for each send, backs off exponentially on retransmissions, and
// learns nothing from a reply to a retransmitted request, since that reply
// may answer any of the sends.
#ifndef KELVANOR_TBRTT_H
#define KELVANOR_TBRTT_H

#include <sys/time.h>

#include <iosfwd>

class TBrtt {
public:
    static const int RXTMIN;     // 2: lowest time-out, seconds
    static const int RXTMAX;     // 20: highest time-out, seconds
    static const int MAXNREXMT;  // 4: the owner gives up beyond this count

    TBrtt() { reset(); }
    virtual ~TBrtt();

    // Before each send, the first and every retransmission: the seconds to
    // wait. A retransmission multiplies the time-out in force by the factor
    // of its count (1, 2, 4, 8, 16), cut to RXTMAX; the owner keeps the count
    // at MAXNREXMT or below.
    int start();
    // The reply came.
    void stop();
    // The start values: valid, rtt and srtt 0, rttdev 1.5, counters 0.
    void reset();
    void printOn(std::ostream& os) const;

    // The owner drives these: it adds 1 to the count per time-out and
    // clears valid when it gives up on the peer.
    int valid;
    int nrexmt;  // retransmissions of the present request
    float rtt, srtt, rttdev;
    int currto;       // the time-out in force, seconds
    int nextTimeout;  // carried to the exchange after a retransmitted one

private:
    timeval _start, _stop;
};

#endif
