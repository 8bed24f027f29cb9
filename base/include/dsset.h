// DSSet: an open-address hash set of counted DSResource references. The
// table has a power-of-two number of slots, finds a key's home slot by the
// multiplicative method and probes downward with wrap-around. Element order
// (iteration, the stream form, compare) is the slot order. Each slot keeps
// the hash its element had when it was entered, so that a probe compares
// numbers and calls the element's isEqual only on a match; an element must
// not change its hash while it is in a set.
#ifndef KELVANOR_DSSET_H
#define KELVANOR_DSSET_H

#include <cstdint>

#include <kelvanor/dscltn.h>

class DSSet : public DSCollection {
    TB_DECLARE_CLASS(DSSet);

public:
    // See setCapacity() for the number of slots that n gives.
    explicit DSSet(unsigned n = 16);
    DSSet(const DSSet& other);
    // _capacity and _count, then the elements as tagged objects.
    explicit DSSet(TBistream& strm);
    ~DSSet() override;
    // Drops all elements, then adds those of other.
    DSSet& operator=(const DSSet& other);

    DSResource* add(DSResource& x) override;
    int remove(const DSResource& x) override;
    void removeAll() override;
    unsigned size() const override { return _count; }
    // 1 if an element equal to x is held, else 0.
    unsigned occurrencesOf(const DSResource& x) const override;
    DSResource* doNext(DSIterator& it) const override;

    // The slot holding an element equal to x, or the empty slot where the
    // search for it ended. add() and remove() run the same search directly.
    virtual unsigned findIndexOf(const DSResource& x) const;
    // The element equal to key, or null.
    virtual DSResource* findObjectWithKey(const DSResource& key) const;
    virtual unsigned capacity() const { return _capacity; }

    // New sets owned by the caller. Intersection and difference are built
    // with this set's capacity, the union with the sum of both capacities.
    DSSet* intersectionOf(const DSSet& other) const;
    DSSet* unionOf(const DSSet& other) const;
    DSSet* differenceOf(const DSSet& other) const;

    // Count difference first, then slot by slot against the other table.
    int compare(const TBObject& other) const override;
    unsigned hash() const override;  // count XOR the elements' hashes
    void write(TBostream& strm) const override;

    // The element in slot i, or null (also out of range).
    DSResource* slot(unsigned i) const { return i < _capacity ? _table[i] : nullptr; }

protected:
    // For derived classes whose stream constructor must read the elements
    // itself, after their own add() is in force: an empty table only.
    DSSet(TBistream& strm, int emptyOnly);
    // Reads the two numbers and the elements, then sizes the table for the
    // count and adds the elements in arrival order through the virtual add().
    void readElements(TBistream& strm);

    // Sets the slot count for n requested entries: 2^bits, where bits is the
    // number of significant bits of n, plus one unless n is a power of two
    // (16 gives 32, 5 gives 16, 17 gives 64, 0 gives 1). Allocates an empty
    // table; the old one must have been released.
    void setCapacity(unsigned n);
    // Grows to at least n slots (n rounded up to a power of two) and enters
    // the elements again in old slot order. Nothing if n is not above the
    // count.
    void reSize(unsigned n);
    // Home slot of a hash value.
    unsigned h(unsigned key) const {
        return (static_cast<uint32_t>(key * 2654435769u) >> ((32 - _bits) & 31)) & _mask;
    }

private:
    void allocate(unsigned bits);
    void copyElements(const DSSet& from);
    // findIndexOf for a hash already known: hx must be x.hash().
    unsigned probe(const DSResource& x, unsigned hx) const;

    unsigned _capacity;  // number of slots, a power of two
    unsigned _count;     // full slots; always below _capacity between calls
    unsigned _bits;      // _capacity == 1 << _bits
    unsigned _mask;      // _capacity - 1
    DSResource** _table; // _capacity slots, null when empty
    unsigned* _hashes;   // _hashes[i]: hash of _table[i]; meaningless where it is null
};

#endif
