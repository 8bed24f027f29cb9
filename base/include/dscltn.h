// The abstract collection and its iterator. Every collection holds counted
// references to DSResource elements; users take elements out with TB_CAST.
#ifndef KELVANOR_DSCLTN_H
#define KELVANOR_DSCLTN_H

#include <kelvanor/tbresrc.h>

class DSIterator;
class DSLink;

class DSCollection : public DSResource {
    TB_DECLARE_CLASS(DSCollection);

public:
    DSCollection() {}
    explicit DSCollection(TBistream& strm) : DSResource(strm) {}

    // The element behind a position that doNext() returned.
    virtual DSResource* value(DSResource* position) const;
    // Adds a reference to x. Returns x, an equal element already held (then
    // nothing changes), or null if x is refused.
    virtual DSResource* add(DSResource& x) = 0;
    // Drops one element equal to x and its reference: 1 if one was found,
    // else 0. The element may be deleted by this call.
    virtual int remove(const DSResource& x) = 0;
    virtual void removeAll() = 0;
    virtual unsigned size() const = 0;
    virtual unsigned occurrencesOf(const DSResource& x) const = 0;
    // The next position, or null at the end; pass it to value().
    virtual DSResource* doNext(DSIterator& it) const = 0;
    virtual bool isEmpty() const { return size() == 0; }
    virtual void doReset(DSIterator& it) const;

    // "Collection size: ", the size and a newline, then each element.
    void prettyPrint(TBostream& strm) const override;
};

// A cursor over one collection. The collection must not change while an
// iteration is under way.
class DSIterator {
public:
    explicit DSIterator(const DSCollection& c) : collection(&c), index(0), current(nullptr) {}
    virtual ~DSIterator();

    // The next element (not position), or null at the end.
    DSResource* next() {
        DSResource* p = collection->doNext(*this);
        return p ? collection->value(p) : nullptr;
    }
    void reset() { collection->doReset(*this); }

    const DSCollection* collection;
    int index;       // sets and ordered collections: next index to look at
    DSLink* current; // linked lists: the node last returned
};

#endif
