// A program that links the base library and calls nothing of it but TBinit()
// and the text streams, so that only what TBinit() brings in is there. It
// reads objects from standard input up to its end and writes them back to
// standard output; a class that is missing makes the read fail and the status 1.
#include <iostream>
#include <sstream>

#include "tbiostrm.h"
#include "tbtinfo.h"

int main() {
    TBinit();
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
