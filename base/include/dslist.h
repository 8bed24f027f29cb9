// DSLinkedList: a singly linked list of DSLink nodes, each holding a counted
// reference to its value.
#ifndef KELVANOR_DSLIST_H
#define KELVANOR_DSLIST_H

#include <kelvanor/dscltn.h>

class DSLinkedList : public DSCollection {
    TB_DECLARE_CLASS(DSLinkedList);

public:
    DSLinkedList() : _first(nullptr), _last(nullptr), _count(0) {}
    // The count, then the values as tagged objects.
    explicit DSLinkedList(TBistream& strm);
    ~DSLinkedList() override;
    DSLinkedList(const DSLinkedList&) = delete;
    DSLinkedList& operator=(const DSLinkedList&) = delete;

    // Positions returned by doNext() are the DSLink nodes.
    DSResource* value(DSResource* position) const override;
    DSResource* add(DSResource& x) override;  // appends; returns x
    int remove(const DSResource& x) override; // the first equal value
    void removeAll() override;
    unsigned size() const override { return _count; }
    unsigned occurrencesOf(const DSResource& x) const override;
    DSResource* doNext(DSIterator& it) const override;

    virtual DSResource* addFirst(DSResource& x);
    // Behind the first value equal to a; null if there is none.
    virtual DSResource* addAfter(const DSResource& a, DSResource& x);
    virtual DSResource* at(int i) const;  // null out of range
    virtual DSResource* first() const;
    virtual DSResource* last() const;
    virtual int removeFirst();
    virtual int removeLast();
    virtual int removeSame(const DSResource& x);  // by address
    virtual DSResource* find(const DSResource& x) const;  // first equal value

    int compare(const TBObject& other) const override;
    unsigned hash() const override;
    void write(TBostream& strm) const override;

private:
    DSLink* findLink(const DSResource& x) const;      // by isEqual
    DSLink* findSameLink(const DSResource& x) const;  // by address
    // Takes link out of the list (prev is its predecessor or null), frees it.
    void unlink(DSLink* prev, DSLink* link);

    DSLink* _first;
    DSLink* _last;
    unsigned _count;
};

#endif
