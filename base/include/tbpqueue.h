// TBPriorityQueue: a bounded array of pointers, each with a priority. The
// lowest priority number leaves first, and among equal ones the oldest.
// The queue does not own what its pointers point to.
#ifndef KELVANOR_TBPQUEUE_H
#define KELVANOR_TBPQUEUE_H

class TBPriorityQueue {
public:
    explicit TBPriorityQueue(unsigned capacity);
    virtual ~TBPriorityQueue();
    TBPriorityQueue(const TBPriorityQueue&) = delete;
    TBPriorityQueue& operator=(const TBPriorityQueue&) = delete;

    // Grows only; the new places get entry records of their own.
    void capacity(unsigned n);
    unsigned capacity() const { return _capacity; }
    int count() const { return _count; }

    // 0, or -100 when the queue is full (nothing changes).
    int add(void* data, unsigned char priority);
    // The entry that leaves next: status 0, or -99 and null when empty.
    void* remove(int& status);
    void* peek(int& status);

    // Where an entry of priority p goes. The search is kept as it always
    // was: it does not fully sort every order of arrival (3, 2, 1 leaves as
    // 3, 1, 2), and queued messages rely on that order staying the same.
    virtual int findIndexOf(unsigned char p);
    void insertAt(int index, unsigned char p, void* data);

private:
    struct Entry {
        unsigned char priority;
        void* data;
    };
    unsigned _capacity;
    int _count;       // entries lie in [0, _count); the last leaves first
    Entry** _array;   // _capacity records, allocated once each
};

#endif
