// A program that calls nothing of the libraries but one initialiser and the
// text streams: DSinit() as built for the base library, _CORBA_init() as
// built against the broker. It reads objects from standard input up to its
// end and writes them back; a class that did not come in makes the read
// fail and the status 1.
#include <iostream>
#include <sstream>

#include "tbiostrm.h"
#include "tbtinfo.h"
#ifdef KELVANOR_PROBE_CORBA_INIT
#include "typecode.h"
#endif

int main() {
#ifdef KELVANOR_PROBE_CORBA_INIT
    _CORBA_init();
#else
    DSinit();
#endif
    TBistream in(std::cin);
    std::ostringstream text;
    {
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
