// The ordered collection: an array of references kept in insertion order.
#include "dsordcltn.h"

#include <vector>

#include "tbiostrm.h"

TB_DEFINE_CLASS(DSOrderedCltn, "DSOrderedCltn", DSResource::desc());

namespace {

// A capacity read from a stream is believed up to this many slots whatever
// the count, and beyond it up to twice the elements that really arrived
// (what growth by doubling can leave). A larger one is hostile or wasteful,
// and is cut; the array then doubles as the elements need.
constexpr unsigned kReadCapacityLimit = 1u << 16;

}  // namespace

DSOrderedCltn::DSOrderedCltn(unsigned n)
    : _capacity(n), _count(0), _items(new DSResource*[n ? n : 1]()) {}

DSOrderedCltn::DSOrderedCltn(TBistream& strm)
    : DSCollection(strm), _capacity(0), _count(0), _items(nullptr) {
    readElements(strm);
}

DSOrderedCltn::~DSOrderedCltn() {
    removeAll();
    delete[] _items;
}

// The elements are collected before the array is made, so that neither the
// count nor the capacity on the stream decides an allocation before the
// elements behind it have arrived; the writer's capacity is then kept as far
// as they back it. A missing or foreign element ends the read.
void DSOrderedCltn::readElements(TBistream& strm) {
    unsigned capacity = 0;
    unsigned count = 0;
    strm >> capacity >> count;
    std::vector<DSResource*> arrived;
    while (arrived.size() < count) {
        DSResource* e = DSreadResource(strm);
        if (!e) break;
        arrived.push_back(e);
    }
    unsigned long backed = 2UL * arrived.size();
    if (backed < kReadCapacityLimit) backed = kReadCapacityLimit;
    _capacity = capacity < backed ? capacity : static_cast<unsigned>(backed);
    _items = new DSResource*[_capacity ? _capacity : 1]();
    for (DSResource* e : arrived) add(*e);
}

DSResource* DSOrderedCltn::addAtIndex(int i, DSResource& x) {
    if (i < 0 || static_cast<unsigned>(i) > _count) return nullptr;
    if (_count == _capacity) {
        // A collection made with capacity 0 grows to 1 rather than staying 0.
        unsigned bigger = _capacity ? 2 * _capacity : 1;
        DSResource** items = new DSResource*[bigger]();
        for (unsigned k = 0; k < _count; ++k) items[k] = _items[k];
        delete[] _items;
        _items = items;
        _capacity = bigger;
    }
    for (unsigned k = _count; k > static_cast<unsigned>(i); --k) _items[k] = _items[k - 1];
    _items[i] = &x;
    ref(&x);
    ++_count;
    return &x;
}

DSResource* DSOrderedCltn::add(DSResource& x) { return addAtIndex(static_cast<int>(_count), x); }

DSResource* DSOrderedCltn::addFirst(DSResource& x) { return addAtIndex(0, x); }

DSResource* DSOrderedCltn::addAfter(const DSResource& a, DSResource& x) {
    int i = indexOf(a);
    return i < 0 ? nullptr : addAtIndex(i + 1, x);
}

DSResource* DSOrderedCltn::addBefore(const DSResource& a, DSResource& x) {
    int i = indexOf(a);
    return i < 0 ? nullptr : addAtIndex(i, x);
}

DSResource* DSOrderedCltn::at(int i) const {
    return (i < 0 || static_cast<unsigned>(i) >= _count) ? nullptr : _items[i];
}

DSResource* DSOrderedCltn::first() const { return at(0); }

DSResource* DSOrderedCltn::last() const { return at(static_cast<int>(_count) - 1); }

int DSOrderedCltn::indexOf(const DSResource& x) const {
    for (unsigned i = 0; i < _count; ++i)
        if (_items[i]->isEqual(x)) return static_cast<int>(i);
    return -1;
}

unsigned DSOrderedCltn::occurrencesOf(const DSResource& x) const {
    unsigned n = 0;
    for (unsigned i = 0; i < _count; ++i)
        if (_items[i]->isEqual(x)) ++n;
    return n;
}

int DSOrderedCltn::removeAtIndex(int i) {
    DSResource* gone = _items[i];
    for (unsigned k = static_cast<unsigned>(i) + 1; k < _count; ++k) _items[k - 1] = _items[k];
    _items[--_count] = nullptr;
    // The element goes last: its destructor may look at this collection.
    unref(gone);
    return 1;
}

int DSOrderedCltn::remove(const DSResource& x) {
    int i = indexOf(x);
    return i < 0 ? 0 : removeAtIndex(i);
}

int DSOrderedCltn::removeSame(const DSResource& x) {
    for (unsigned i = 0; i < _count; ++i)
        if (_items[i] == &x) return removeAtIndex(static_cast<int>(i));
    return 0;
}

int DSOrderedCltn::removeAt(int i) {
    return (i < 0 || static_cast<unsigned>(i) >= _count) ? 0 : removeAtIndex(i);
}

int DSOrderedCltn::removeFirst() { return removeAt(0); }

int DSOrderedCltn::removeLast() { return removeAt(static_cast<int>(_count) - 1); }

void DSOrderedCltn::removeAll() {
    while (_count > 0) removeAtIndex(static_cast<int>(_count) - 1);
}

DSResource* DSOrderedCltn::doNext(DSIterator& it) const {
    if (it.index < 0 || static_cast<unsigned>(it.index) >= _count) return nullptr;
    return _items[it.index++];
}

int DSOrderedCltn::compare(const TBObject& other) const {
    const DSOrderedCltn* o = dynamic_cast<const DSOrderedCltn*>(&other);
    if (!o) return -1;
    if (_count != o->_count) return static_cast<int>(_count) - static_cast<int>(o->_count);
    for (unsigned i = 0; i < _count; ++i)
        if (int c = _items[i]->compare(*o->_items[i])) return c;
    return 0;
}

unsigned DSOrderedCltn::hash() const {
    unsigned v = _count;
    for (unsigned i = 0; i < _count; ++i) v ^= _items[i]->hash();
    return v;
}

void DSOrderedCltn::write(TBostream& strm) const {
    strm << _capacity << _count;
    for (unsigned i = 0; i < _count; ++i) strm << static_cast<const TBTransObject*>(_items[i]);
}
