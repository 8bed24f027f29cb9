// The singly linked list of DSLink nodes.
#include "dslist.h"

#include "dsassoc.h"
#include "tbiostrm.h"

TB_DEFINE_CLASS(DSLinkedList, "DSLinkedList", DSResource::desc());

DSLinkedList::DSLinkedList(TBistream& strm)
    : DSCollection(strm), _first(nullptr), _last(nullptr), _count(0) {
    unsigned count = 0;
    strm >> count;
    // A missing or foreign element ends the read.
    for (unsigned k = 0; k < count; ++k) {
        DSResource* e = DSreadResource(strm);
        if (!e) break;
        add(*e);
    }
}

DSLinkedList::~DSLinkedList() { removeAll(); }

DSResource* DSLinkedList::value(DSResource* position) const {
    return position ? static_cast<DSLink*>(position)->value : nullptr;
}

DSResource* DSLinkedList::add(DSResource& x) {
    DSLink* link = new DSLink(x);
    if (_last)
        _last->next = link;
    else
        _first = link;
    _last = link;
    ++_count;
    return &x;
}

DSResource* DSLinkedList::addFirst(DSResource& x) {
    if (!_first) return add(x);
    _first = new DSLink(x, _first);
    ++_count;
    return &x;
}

DSResource* DSLinkedList::addAfter(const DSResource& a, DSResource& x) {
    DSLink* at = findLink(a);
    if (!at) return nullptr;
    at->next = new DSLink(x, at->next);
    if (at == _last) _last = at->next;
    ++_count;
    return &x;
}

DSResource* DSLinkedList::at(int i) const {
    if (i < 0) return nullptr;
    DSLink* l = _first;
    for (; l && i > 0; --i) l = l->next;
    return l ? l->value : nullptr;
}

DSResource* DSLinkedList::first() const { return _first ? _first->value : nullptr; }

DSResource* DSLinkedList::last() const { return _last ? _last->value : nullptr; }

DSLink* DSLinkedList::findLink(const DSResource& x) const {
    for (DSLink* l = _first; l; l = l->next)
        if (l->value && l->value->isEqual(x)) return l;
    return nullptr;
}

DSLink* DSLinkedList::findSameLink(const DSResource& x) const {
    for (DSLink* l = _first; l; l = l->next)
        if (l->value == &x) return l;
    return nullptr;
}

DSResource* DSLinkedList::find(const DSResource& x) const {
    DSLink* l = findLink(x);
    return l ? l->value : nullptr;
}

unsigned DSLinkedList::occurrencesOf(const DSResource& x) const {
    unsigned n = 0;
    for (DSLink* l = _first; l; l = l->next)
        if (l->value && l->value->isEqual(x)) ++n;
    return n;
}

void DSLinkedList::unlink(DSLink* prev, DSLink* link) {
    if (prev)
        prev->next = link->next;
    else
        _first = link->next;
    if (_last == link) _last = prev;
    --_count;
    // Freed after the list is whole again; the value may die with the link.
    delete link;
}

namespace {

// The predecessor of link, or null when it is the first.
DSLink* before(DSLink* first, const DSLink* link) {
    DSLink* prev = nullptr;
    for (DSLink* l = first; l && l != link; l = l->next) prev = l;
    return prev;
}

}  // namespace

int DSLinkedList::remove(const DSResource& x) {
    DSLink* link = findLink(x);
    if (!link) return 0;
    unlink(before(_first, link), link);
    return 1;
}

int DSLinkedList::removeSame(const DSResource& x) {
    DSLink* link = findSameLink(x);
    if (!link) return 0;
    unlink(before(_first, link), link);
    return 1;
}

int DSLinkedList::removeFirst() {
    if (!_first) return 0;
    unlink(nullptr, _first);
    return 1;
}

int DSLinkedList::removeLast() {
    if (!_last) return 0;
    unlink(before(_first, _last), _last);
    return 1;
}

void DSLinkedList::removeAll() {
    while (_first) unlink(nullptr, _first);
}

DSResource* DSLinkedList::doNext(DSIterator& it) const {
    if (!it.current) {
        if (!_first) return nullptr;
        it.current = _first;
        it.index = 1;
        return _first;
    }
    if (it.current == _last) return nullptr;
    it.current = it.current->next;
    ++it.index;
    return it.current;
}

int DSLinkedList::compare(const TBObject& other) const {
    const DSLinkedList* o = dynamic_cast<const DSLinkedList*>(&other);
    if (!o) return -1;
    if (_count != o->_count) return static_cast<int>(_count) - static_cast<int>(o->_count);
    for (DSLink *a = _first, *b = o->_first; a && b; a = a->next, b = b->next)
        if (int c = a->compare(*b)) return c;
    return 0;
}

unsigned DSLinkedList::hash() const {
    unsigned v = _count;
    for (DSLink* l = _first; l; l = l->next) v ^= l->hash();
    return v;
}

void DSLinkedList::write(TBostream& strm) const {
    strm << _count;
    for (DSLink* l = _first; l; l = l->next) strm << static_cast<const TBTransObject*>(l->value);
}
