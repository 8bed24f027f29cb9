// Batched standard output: the block, the flush rules and the signal path.
#include "vexbatch.h"

#include <unistd.h>

VEXOutputBatch* VEXOutputBatch::_active = nullptr;

VEXOutputBatch::VEXOutputBatch(std::ostream& os)
    : _os(os), _saved(os.rdbuf()), _previous(_active), _holding(0) {
    setp(_block, _block + kBlock);
    _os.rdbuf(this);
    _active = this;
}

VEXOutputBatch::~VEXOutputBatch() {
    _active = _previous;
    pass();
    _os.rdbuf(_saved);
}

int VEXOutputBatch::pass() {
    std::ptrdiff_t n = pptr() - pbase();
    setp(_block, _block + kBlock);
    if (!_saved) return 0;
    if (n > 0) _saved->sputn(_block, n);
    // Flushed at once, so that no text waits anywhere but in the block,
    // where the signal path finds it.
    return _saved->pubsync();
}

VEXOutputBatch::int_type VEXOutputBatch::overflow(int_type c) {
    // A full block goes on even while held: holding only saves writes, it
    // never keeps output back without bound.
    pass();
    if (traits_type::eq_int_type(c, traits_type::eof())) return traits_type::not_eof(c);
    *pptr() = traits_type::to_char_type(c);
    pbump(1);
    return c;
}

int VEXOutputBatch::sync() {
    return _holding ? 0 : pass();
}

VEXOutputBatch::Hold::Hold() : _batch(_active) {
    if (_batch) ++_batch->_holding;
}

VEXOutputBatch::Hold::~Hold() {
    if (_batch) --_batch->_holding;
}

void VEXOutputBatch::flushFromSignal() {
    // Runs in a signal handler; touches the installed batch's block only.
    // The put pointer moves after the bytes are copied, so [pbase(), pptr())
    // is always whole text.
    VEXOutputBatch* b = _active;
    if (!b) return;
    const char* p = b->pbase();
    std::ptrdiff_t n = b->pptr() - p;
    while (n > 0) {
        ssize_t k = write(1, p, static_cast<size_t>(n));
        if (k <= 0) return;  // nothing more can be done for it here
        p += k;
        n -= k;
    }
}
