// Reading a block whose size came from the data itself. A count from a file
// or a peer is hostile: the block grows in bounded steps as the bytes really
// arrive, so a lying count costs a CORBA_MARSHAL and not gigabytes.
#ifndef KELVANOR_ZEBREAD_H
#define KELVANOR_ZEBREAD_H

#include <kelvanor/corba.h>

class TBistream;
class TBipcbuf;

// A new[] array of exactly n elements (n > 0), filled by strm.get(p, k).
// Throws CORBA_MARSHAL if the stream runs dry; nothing leaks then. With got,
// a stream that runs dry without throwing by itself (the base object
// streams, which never throw) ends the read instead: the array then holds
// the *got elements that arrived, and at least one slot more.
// Instantiated for char and unsigned char.
template <class T>
T* ZEBreadBlock(TBistream& strm, CORBA::ULong n, CORBA::ULong* got = nullptr);

// Throws CORBA_MARSHAL if the platform stream under strm has failed. Binary
// transports report short data by throwing themselves, so this only looks at
// the text form.
void ZEBcheckStream(TBistream& strm);

// Watches a stream through a loop over elements or blocks it reads, so that
// a count larger than the data ends the loop when the data end. check(),
// called after each step, throws CORBA_MARSHAL once the stream has run dry:
// the CDR streams throw by themselves, the text form shows it in its
// platform stream's fail bit, and the binary buffer stream, which reports
// nothing, by a read position that a step no longer moves (every element
// and every non-empty block takes at least one slot of it).
class ZEBReadGuard {
public:
    explicit ZEBReadGuard(TBistream& strm);
    // True once a step has found nothing; the next step is measured from here.
    bool dry();
    void check();

private:
    TBistream& _strm;
    const TBipcbuf* _buf;  // of a binary buffer stream; null for others
    const char* _last;     // its read position after the last step
};

// A count read as unsigned long must fit the 32 bits it has on every stream;
// anything larger throws CORBA_MARSHAL.
CORBA::ULong ZEBcheckCount(unsigned long n);

#endif
