// The hash set and its table algorithms: sizing, probing, insertion with
// doubling, and deletion that keeps every probe chain intact.
#include "dsset.h"

#include <iostream>
#include <vector>

#include "tbiostrm.h"
#include "tbiotbl.h"

TB_DEFINE_CLASS(DSSet, "DSSet", DSResource::desc());

namespace {

// Beyond this a slot count no longer fits the 32-bit hash index.
constexpr unsigned kMaxBits = 31;

}  // namespace

DSSet::DSSet(unsigned n)
    : _capacity(0), _count(0), _bits(0), _mask(0), _table(nullptr), _hashes(nullptr) {
    setCapacity(n);
}

DSSet::DSSet(const DSSet& other)
    : DSCollection(other), _capacity(0), _count(0), _bits(0), _mask(0), _table(nullptr),
      _hashes(nullptr) {
    allocate(other._bits);
    copyElements(other);
}

DSSet::DSSet(TBistream& strm)
    : DSCollection(strm), _capacity(0), _count(0), _bits(0), _mask(0), _table(nullptr),
      _hashes(nullptr) {
    allocate(0);
    readElements(strm);
}

DSSet::DSSet(TBistream& strm, int)
    : DSCollection(strm), _capacity(0), _count(0), _bits(0), _mask(0), _table(nullptr),
      _hashes(nullptr) {
    allocate(0);
}

DSSet::~DSSet() {
    removeAll();
    delete[] _table;
    delete[] _hashes;
}

DSSet& DSSet::operator=(const DSSet& other) {
    if (this != &other) {
        removeAll();
        copyElements(other);
    }
    return *this;
}

void DSSet::allocate(unsigned bits) {
    delete[] _table;
    delete[] _hashes;
    _table = nullptr;
    _hashes = nullptr;
    _bits = bits > kMaxBits ? kMaxBits : bits;
    _capacity = 1u << _bits;
    _mask = _capacity - 1;
    _table = new DSResource*[_capacity]();
    _hashes = new unsigned[_capacity];
    _count = 0;
}

// A power of two keeps the odd extra bit: 16 has five significant bits and
// so gets 32 slots. Kept on purpose; the table sizes of the system rest on it.
void DSSet::setCapacity(unsigned n) {
    unsigned bits = 0;
    while (bits < 32 && (n >> bits) != 0) ++bits;
    if (n & (n - 1)) ++bits;
    allocate(bits);
}

void DSSet::copyElements(const DSSet& from) {
    for (unsigned i = 0; i < from._capacity; ++i)
        if (from._table[i]) add(*from._table[i]);
}

unsigned DSSet::findIndexOf(const DSResource& x) const { return probe(x, x.hash()); }

unsigned DSSet::probe(const DSResource& x, unsigned hx) const {
    unsigned i = h(hx);
    // The table always keeps an empty slot, so the walk ends there; the
    // bound only guards against a table that could not grow. Equal elements
    // have equal hashes, so a slot of another hash is passed over without
    // asking the element: weak string hashes make long chains, and most of
    // a chain holds other hashes.
    for (unsigned steps = 0; steps < _capacity && _table[i]; ++steps) {
        if (_hashes[i] == hx && _table[i]->isEqual(x)) break;
        i = (i - 1) & _mask;
    }
    if (i >= _capacity) {
        std::cout << "DSSet::findIndexOf: error computing. i= " << i << std::endl;
        i &= _mask;  // go on with an index that exists
    }
    return i;
}

DSResource* DSSet::findObjectWithKey(const DSResource& key) const {
    return _table[findIndexOf(key)];
}

unsigned DSSet::occurrencesOf(const DSResource& x) const {
    return findObjectWithKey(x) ? 1 : 0;
}

DSResource* DSSet::add(DSResource& x) {
    unsigned hx = x.hash();
    unsigned i = probe(x, hx);
    if (_table[i]) return _table[i];
    _table[i] = &x;
    _hashes[i] = hx;
    ref(&x);
    if (++_count > _capacity - 1) reSize(2 * _capacity);
    return &x;
}

void DSSet::reSize(unsigned n) {
    if (n <= _count) return;
    unsigned bits = 0;
    while (bits < kMaxBits && (1u << bits) < n) ++bits;
    DSResource** old = _table;
    unsigned* oldHashes = _hashes;
    unsigned oldCapacity = _capacity;
    _table = nullptr;
    _hashes = nullptr;
    allocate(bits);
    delete[] oldHashes;
    // Through the virtual add, as a derived table may index differently;
    // the unref balances the reference the new add took.
    for (unsigned i = 0; i < oldCapacity; ++i) {
        if (!old[i]) continue;
        add(*old[i]);
        unref(old[i]);
    }
    delete[] old;
}

int DSSet::remove(const DSResource& x) {
    unsigned hole = probe(x, x.hash());
    DSResource* gone = _table[hole];
    if (!gone) return 0;
    _table[hole] = nullptr;
    // Close the gap (Knuth's deletion for linear probing, walking down as the
    // probes do): an element below the hole may move into it unless its home
    // lies cyclically in [its slot, hole), where the hole is off its path.
    unsigned j = hole;
    for (;;) {
        j = (j - 1) & _mask;
        DSResource* e = _table[j];
        if (!e) break;
        unsigned home = h(_hashes[j]);
        if (((home - j) & _mask) < ((hole - j) & _mask)) continue;
        _table[hole] = e;
        _hashes[hole] = _hashes[j];
        _table[j] = nullptr;
        hole = j;
    }
    --_count;
    // Released last: x may be the element itself and die here.
    unref(gone);
    return 1;
}

void DSSet::removeAll() {
    for (unsigned i = 0; i < _capacity && _count > 0; ++i) {
        DSResource* e = _table[i];
        if (!e) continue;
        _table[i] = nullptr;
        --_count;
        unref(e);
    }
}

DSResource* DSSet::doNext(DSIterator& it) const {
    for (unsigned i = it.index < 0 ? 0 : static_cast<unsigned>(it.index); i < _capacity; ++i) {
        if (_table[i]) {
            it.index = static_cast<int>(i + 1);
            return _table[i];
        }
    }
    it.index = static_cast<int>(_capacity);
    return nullptr;
}

DSSet* DSSet::intersectionOf(const DSSet& other) const {
    DSSet* result = new DSSet(_capacity);
    for (unsigned i = 0; i < _capacity; ++i)
        if (_table[i] && other.findObjectWithKey(*_table[i])) result->add(*_table[i]);
    return result;
}

DSSet* DSSet::unionOf(const DSSet& other) const {
    DSSet* result = new DSSet(_capacity + other._capacity);
    result->copyElements(*this);
    result->copyElements(other);
    return result;
}

DSSet* DSSet::differenceOf(const DSSet& other) const {
    DSSet* result = new DSSet(_capacity);
    for (unsigned i = 0; i < _capacity; ++i)
        if (_table[i] && !other.findObjectWithKey(*_table[i])) result->add(*_table[i]);
    return result;
}

int DSSet::compare(const TBObject& other) const {
    const DSSet* o = dynamic_cast<const DSSet*>(&other);
    if (!o) return -1;
    if (_count != o->_count) return static_cast<int>(_count) - static_cast<int>(o->_count);
    unsigned n = _capacity > o->_capacity ? _capacity : o->_capacity;
    for (unsigned i = 0; i < n; ++i) {
        DSResource* a = slot(i);
        DSResource* b = o->slot(i);
        if (!a && !b) continue;
        if (!a) return -1;
        if (!b) return 1;
        if (int c = a->compare(*b)) return c;
    }
    return 0;
}

unsigned DSSet::hash() const {
    unsigned v = _count;
    for (unsigned i = 0; i < _capacity; ++i)
        if (_table[i]) v ^= _table[i]->hash();
    return v;
}

void DSSet::write(TBostream& strm) const {
    strm << _capacity << _count;
    for (unsigned i = 0; i < _capacity; ++i)
        if (_table[i]) strm << static_cast<const TBTransObject*>(_table[i]);
}

// The capacity on the stream is read and ignored: the table is sized for the
// count, and the elements are entered in the order they came, which is the
// writer's slot order. That gives the reader the slot layout, and so the
// iteration and write order, that the writer's own table had.
//
// The count comes before the elements and may lie, so the table is not made
// from it up front: the elements are collected first, in an array that grows
// only with elements that really arrived, and the table is sized once they
// are all there. A missing or foreign element ends the read (the stream is
// out of step from there on anyway) and the table is then sized for what came.
void DSSet::readElements(TBistream& strm) {
    unsigned capacity = 0;
    unsigned count = 0;
    strm >> capacity >> count;
    std::vector<DSResource*> arrived;
    while (arrived.size() < count) {
        DSResource* e = DSreadResource(strm);
        if (!e) break;
        arrived.push_back(e);
    }
    setCapacity(arrived.size() == count ? count : static_cast<unsigned>(arrived.size()));
    for (DSResource* e : arrived) {
        // An element the table refuses (a duplicate, or what a dictionary
        // cannot take) and that nothing holds goes with the stream's numbers.
        if (add(*e) != e && e->refCount() == 0) strm.inTable().orphan(e);
    }
}
