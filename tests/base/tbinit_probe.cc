// A program that calls nothing of the libraries but one initialiser and the
// text streams, so that only what it brings in is there: TBinit(), or built
// with KELVANOR_PROBE_DSINIT DSinit(), both against the base library, or
// with KELVANOR_PROBE_CORBA_INIT _CORBA_init() against the broker. It reads
// objects from standard input up to its end and writes them back to
// standard output; a class that is missing makes the read fail and the status 1.
#include <iostream>
#include <sstream>

#include "tbiostrm.h"
#include "tbtinfo.h"
#ifdef KELVANOR_PROBE_CORBA_INIT
#include "typecode.h"
#endif

int main() {
#if defined(KELVANOR_PROBE_CORBA_INIT)
    _CORBA_init();
#elif defined(KELVANOR_PROBE_DSINIT)
    DSinit();
#else
    TBinit();
#endif
    TBistream in(std::cin);
    std::ostringstream text;
    {
        // One writer for all, as the test's writer had: class numbers carry
        // over from one top-level object to the next.
        TBostream out(text);
        while ((std::cin >> std::ws).peek() != EOF) {
            TBTransObject* obj = in.readTransObj();
            if (!obj) return 1;
            out << obj;
            delete obj;
        }
    }
    std::cout << text.str() << std::flush;
    return 0;
}
