// The transports' priority queue: records allocated up front, so that adding
// never allocates.
#include "tbpqueue.h"

TBPriorityQueue::TBPriorityQueue(unsigned capacity)
    : _capacity(capacity), _count(0), _array(new Entry*[capacity]) {
    for (unsigned i = 0; i < capacity; ++i) _array[i] = new Entry{0, nullptr};
}

TBPriorityQueue::~TBPriorityQueue() {
    for (unsigned i = 0; i < _capacity; ++i) delete _array[i];
    delete[] _array;
}

void TBPriorityQueue::capacity(unsigned n) {
    if (n <= _capacity) return;
    Entry** bigger = new Entry*[n];
    for (unsigned i = 0; i < _capacity; ++i) bigger[i] = _array[i];
    for (unsigned i = _capacity; i < n; ++i) bigger[i] = new Entry{0, nullptr};
    delete[] _array;
    _array = bigger;
    _capacity = n;
}

int TBPriorityQueue::findIndexOf(unsigned char p) {
    if (_count == 0) return 0;
    if (_array[0]->priority < p) return 0;
    int low = 0, high = _count - 1, mid = 0, d = 0;
    while (high >= low) {
        mid = (low + high) / 2;
        d = static_cast<int>(p) - _array[mid]->priority;
        if (d < 0) low = mid + 1;
        else if (d == 0) return mid;
        else high = mid - 1;
    }
    return (mid > 0 && d > 0) ? mid - 1 : mid;
}

void TBPriorityQueue::insertAt(int index, unsigned char p, void* data) {
    for (int i = _count; i > index; --i) *_array[i] = *_array[i - 1];
    _array[index]->priority = p;
    _array[index]->data = data;
    ++_count;
}

int TBPriorityQueue::add(void* data, unsigned char p) {
    if (static_cast<unsigned>(_count) >= _capacity) return -100;
    if (_count == 0) {
        insertAt(0, p, data);
        return 0;
    }
    int i = findIndexOf(p);
    if (i != 0 && _array[i]->priority == p)
        while (i > 0 && _array[i - 1]->priority == p) --i;
    insertAt(i, p, data);
    return 0;
}

void* TBPriorityQueue::peek(int& status) {
    if (_count == 0) {
        status = -99;
        return nullptr;
    }
    status = 0;
    return _array[_count - 1]->data;
}

void* TBPriorityQueue::remove(int& status) {
    void* data = peek(status);
    if (status == 0) _array[--_count]->data = nullptr;
    return data;
}
