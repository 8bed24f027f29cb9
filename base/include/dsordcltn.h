// DSOrderedCltn: a growing array of counted references in insertion order.
#ifndef KELVANOR_DSORDCLTN_H
#define KELVANOR_DSORDCLTN_H

#include <kelvanor/dscltn.h>

class DSOrderedCltn : public DSCollection {
    TB_DECLARE_CLASS(DSOrderedCltn);

public:
    // The array is allocated at once with exactly n slots.
    explicit DSOrderedCltn(unsigned n = 16);
    // _capacity and _count, then the elements as tagged objects.
    explicit DSOrderedCltn(TBistream& strm);
    ~DSOrderedCltn() override;
    DSOrderedCltn(const DSOrderedCltn&) = delete;
    DSOrderedCltn& operator=(const DSOrderedCltn&) = delete;

    DSResource* add(DSResource& x) override;  // appends; returns x
    int remove(const DSResource& x) override; // the first equal element
    void removeAll() override;
    unsigned size() const override { return _count; }
    unsigned occurrencesOf(const DSResource& x) const override;
    DSResource* doNext(DSIterator& it) const override;

    // Inserts x before index i (0..size()); the array doubles when full.
    // Returns x, or null for an index out of range.
    DSResource* addAtIndex(int i, DSResource& x);
    virtual DSResource* addFirst(DSResource& x);
    // Next to the first element equal to a; null if there is none.
    virtual DSResource* addAfter(const DSResource& a, DSResource& x);
    virtual DSResource* addBefore(const DSResource& a, DSResource& x);
    virtual DSResource* at(int i) const;  // null out of range
    virtual DSResource* first() const;
    virtual DSResource* last() const;
    virtual int removeSame(const DSResource& x);  // by address
    virtual int removeAt(int i);                  // 0 out of range
    virtual int removeFirst();
    virtual int removeLast();
    virtual unsigned capacity() const { return _capacity; }
    virtual int indexOf(const DSResource& x) const;  // first equal, or -1

    // Closes the gap, then drops the element's reference last. Returns 1.
    int removeAtIndex(int i);

    int compare(const TBObject& other) const override;
    unsigned hash() const override;
    void write(TBostream& strm) const override;

private:
    void readElements(TBistream& strm);

    unsigned _capacity;   // slots in _items
    unsigned _count;      // elements lie in _items[0, _count)
    DSResource** _items;
};

#endif
