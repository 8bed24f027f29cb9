// Bounded reading of counted blocks.
#include "zebread.h"

#include <cstring>
#include <istream>
#include <memory>

#include "except.h"
#include "tbiostrm.h"

namespace {
// First step of a block of unknown honesty; later steps double.
constexpr CORBA::ULong kFirstStep = 64 * 1024;
}  // namespace

void ZEBcheckStream(TBistream& strm) {
    std::istream* is = strm.istreamPtr();
    if (is && is->fail()) throw CORBA_MARSHAL(0, CORBA::COMPLETED_NO);
}

CORBA::ULong ZEBcheckCount(unsigned long n) {
    if (n > 0xffffffffUL) throw CORBA_MARSHAL(0, CORBA::COMPLETED_NO);
    return static_cast<CORBA::ULong>(n);
}

template <class T>
T* ZEBreadBlock(TBistream& strm, CORBA::ULong n) {
    CORBA::ULong cap = n < kFirstStep ? n : kFirstStep;
    std::unique_ptr<T[]> block(new T[cap ? cap : 1]);
    CORBA::ULong have = 0;
    for (;;) {
        strm.get(block.get() + have, cap - have);
        ZEBcheckStream(strm);
        have = cap;
        if (have >= n) break;
        CORBA::ULong next = cap > n / 2 ? n : cap * 2;
        std::unique_ptr<T[]> bigger(new T[next]);
        std::memcpy(bigger.get(), block.get(), have);
        block = std::move(bigger);
        cap = next;
    }
    return block.release();
}

template char* ZEBreadBlock<char>(TBistream&, CORBA::ULong);
template unsigned char* ZEBreadBlock<unsigned char>(TBistream&, CORBA::ULong);
