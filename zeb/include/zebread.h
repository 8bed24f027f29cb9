// Reading a block whose size came from the data itself. A count from a file
// or a peer is hostile: the block grows in bounded steps as the bytes really
// arrive, so a lying count costs a CORBA_MARSHAL and not gigabytes.
#ifndef KELVANOR_ZEBREAD_H
#define KELVANOR_ZEBREAD_H

#include "corba.h"

class TBistream;

// A new[] array of exactly n elements (n > 0), filled by strm.get(p, k).
// Throws CORBA_MARSHAL if the stream runs dry; nothing leaks then.
// Instantiated for char and unsigned char.
template <class T>
T* ZEBreadBlock(TBistream& strm, CORBA::ULong n);

// Throws CORBA_MARSHAL if the platform stream under strm has failed. Binary
// transports report short data by throwing themselves, so this only looks at
// the text form.
void ZEBcheckStream(TBistream& strm);

// A count read as unsigned long must fit the 32 bits it has on every stream;
// anything larger throws CORBA_MARSHAL.
CORBA::ULong ZEBcheckCount(unsigned long n);

#endif
