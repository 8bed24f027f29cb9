// Bounded reading of counted blocks.
#include "zebread.h"

#include <cstring>
#include <istream>
#include <memory>

#include "except.h"
#include "tbiostrm.h"
#include "tbipcstr.h"

namespace {
// First step of a block of unknown honesty; later steps double.
constexpr CORBA::ULong kFirstStep = 64 * 1024;
}  // namespace

void ZEBcheckStream(TBistream& strm) {
    std::istream* is = strm.istreamPtr();
    if (is && is->fail()) throw CORBA_MARSHAL(0, CORBA::COMPLETED_NO);
}

ZEBReadGuard::ZEBReadGuard(TBistream& strm) : _strm(strm), _buf(nullptr), _last(nullptr) {
    // A virtual call rather than a dynamic_cast: this runs for every
    // sequence a message carries.
    _buf = strm.inBuffer();
    if (_buf) _last = _buf->read_ptr;
}

bool ZEBReadGuard::dry() {
    std::istream* is = _strm.istreamPtr();
    if (is && is->fail()) return true;
    if (!_buf) return false;
    if (_buf->read_ptr == _last) return true;
    _last = _buf->read_ptr;
    return false;
}

void ZEBReadGuard::check() {
    if (dry()) throw CORBA_MARSHAL(0, CORBA::COMPLETED_NO);
}

CORBA::ULong ZEBcheckCount(unsigned long n) {
    if (n > 0xffffffffUL) throw CORBA_MARSHAL(0, CORBA::COMPLETED_NO);
    return static_cast<CORBA::ULong>(n);
}

template <class T>
T* ZEBreadBlock(TBistream& strm, CORBA::ULong n, CORBA::ULong* got) {
    CORBA::ULong cap = n < kFirstStep ? n : kFirstStep;
    std::unique_ptr<T[]> block(new T[cap ? cap : 1]);
    CORBA::ULong have = 0;
    ZEBReadGuard guard(strm);
    for (;;) {
        strm.get(block.get() + have, cap - have);
        if (guard.dry()) {
            if (!got) throw CORBA_MARSHAL(0, CORBA::COMPLETED_NO);
            *got = have;  // what arrived before the step that found nothing
            return block.release();
        }
        have = cap;
        if (have >= n) break;
        CORBA::ULong next = cap > n / 2 ? n : cap * 2;
        std::unique_ptr<T[]> bigger(new T[next]);
        std::memcpy(bigger.get(), block.get(), have);
        block = std::move(bigger);
        cap = next;
    }
    if (got) *got = n;
    return block.release();
}

template char* ZEBreadBlock<char>(TBistream&, CORBA::ULong, CORBA::ULong*);
template unsigned char* ZEBreadBlock<unsigned char>(TBistream&, CORBA::ULong, CORBA::ULong*);
