// Identity tables of the object streams. A writer numbers every object and
// class it puts on a stream (TBOutTbl); a reader keeps the objects and classes
// it has made in the same order (TBInTbl), so that "#n" and "@n" on a stream
// find what the writer meant. Also the sizing and index rule shared by the
// base library's open-address tables.
#ifndef KELVANOR_TBIOTBL_H
#define KELVANOR_TBIOTBL_H

#include <vector>

#include <cstdint>

class TBTransObject;
class TBTypeInfo;

// Size and index rule of an open-address table. The number of slots is
// 2^bits, where bits is the count of significant bits of the requested
// capacity, plus one unless it is a power of two (so 16 gives 32 slots and
// 5 gives 16; 0 gives 1 slot). A key's home slot is the top bits of its
// 32-bit product with 2654435769; collisions probe downward with
// wrap-around.
struct TBHashShape {
    unsigned bits = 0;
    unsigned mask = 0;   // slots - 1
    unsigned slots = 1;

    void setCapacity(unsigned n);
    void setSlots(unsigned bitCount);  // exactly 2^bitCount slots
    unsigned home(uint32_t key) const {
        return (static_cast<uint32_t>(key * 2654435769u) >> ((32 - bits) & 31)) & mask;
    }
    unsigned below(unsigned i) const { return (i - 1) & mask; }
};

// Pointer to number, open addressing keyed by the pointer's value. Slots
// hold the pair inline; a null key marks an empty slot. The table doubles
// when an insertion leaves it full, so a probe always ends at an empty slot.
class TBPtrDict {
public:
    explicit TBPtrDict(unsigned capacity);
    ~TBPtrDict();
    TBPtrDict(const TBPtrDict&) = delete;
    TBPtrDict& operator=(const TBPtrDict&) = delete;

    // Enters key with the given number unless it is there. Returns true if
    // it was entered; number then holds what it was given, else the number
    // the key already has. key must not be null.
    bool add(const void* key, int& number);
    int find(const void* key) const;  // -1 if absent
    void clear();                     // keeps the size
    unsigned count() const { return _count; }
    unsigned slotCount() const { return _shape.slots; }

private:
    struct Slot {
        const void* key;
        int number;
    };
    unsigned slotOf(const void* key) const;  // key's slot or the empty one ending its chain
    void grow();

    TBHashShape _shape;
    unsigned _count;
    Slot* _slots;  // _shape.slots entries
};

// Objects seen by a writer. Numbers run 0, 1, 2... in order of first entry
// and start again after clear().
class TBTransDict : public TBPtrDict {
public:
    explicit TBTransDict(unsigned capacity) : TBPtrDict(capacity) {}
    // True if obj is new; number receives its (new or old) number.
    bool add(const TBTransObject* obj, int& number);
    void clear();

private:
    int _last = -1;  // last object number given, -1 when none
};

// Classes seen by a writer, numbered like objects but cleared separately.
class TBClassInfoDict : public TBPtrDict {
public:
    explicit TBClassInfoDict(unsigned capacity) : TBPtrDict(capacity) {}
    bool add(const TBTypeInfo* info, int& number);
    void clear();

private:
    int _last = -1;
};

// Objects made by a reader, as a set for "was it entered already".
class TBTransSet : public TBPtrDict {
public:
    explicit TBTransSet(unsigned capacity) : TBPtrDict(capacity) {}
    bool contains(const TBTransObject* obj) const { return find(obj) >= 0; }
};

// Growing array of pointers: doubles when full; at() is null out of range.
template <class T>
class TBPtrArray {
public:
    explicit TBPtrArray(unsigned capacity)
        : _data(new T*[capacity ? capacity : 1]), _count(0), _capacity(capacity ? capacity : 1) {}
    ~TBPtrArray() { delete[] _data; }
    TBPtrArray(const TBPtrArray&) = delete;
    TBPtrArray& operator=(const TBPtrArray&) = delete;

    // Returns the index the element was given.
    int add(T* p) {
        if (_count == _capacity) {
            T** bigger = new T*[2 * _capacity];
            for (unsigned i = 0; i < _count; ++i) bigger[i] = _data[i];
            delete[] _data;
            _data = bigger;
            _capacity *= 2;
        }
        _data[_count] = p;
        return static_cast<int>(_count++);
    }
    T* at(int i) const {
        return (i < 0 || static_cast<unsigned>(i) >= _count) ? nullptr : _data[i];
    }
    void clear() { _count = 0; }
    unsigned count() const { return _count; }
    unsigned capacity() const { return _capacity; }

private:
    T** _data;
    unsigned _count;     // valid entries lie in [0, _count)
    unsigned _capacity;
};

using TBTransCltn = TBPtrArray<TBTransObject>;
using TBTypeCltn = TBPtrArray<const TBTypeInfo>;

// The writer's table. The object level counts the nesting of writeTransObj;
// when the outermost one ends, the object numbers start again. Class numbers
// stay until clearClasses().
class TBOutTbl : public TBTransDict {
public:
    TBOutTbl();

    bool addClass(const TBTypeInfo* info, int& number) { return _classes.add(info, number); }
    void clearObjects() { TBTransDict::clear(); }
    void clearClasses() { _classes.clear(); }

    int raiseObjectLevel() { return ++_objectLevel; }
    int lowerObjectLevel() { return --_objectLevel; }
    int objectLevel() const { return _objectLevel; }

private:
    TBClassInfoDict _classes;
    int _objectLevel = 0;
};

// The reader's table: the set of numbered objects, the same objects by
// number, and the classes by number in order of first appearance.
class TBInTbl : public TBTransSet {
public:
    TBInTbl();

    // Index given to obj, or -1 if it was numbered already.
    int add(TBTransObject& obj);
    TBTransObject* objectAt(int i) const { return _objects.at(i); }
    int addClass(const TBTypeInfo* info) { return _classes.add(info); }
    const TBTypeInfo* classAt(int i) const { return _classes.at(i); }
    void clearObjects();
    void clearClasses() { _classes.clear(); }

    int raiseObjectLevel() { return ++_objectLevel; }
    int lowerObjectLevel() { return --_objectLevel; }
    int objectLevel() const { return _objectLevel; }

    // Objects whose reading has begun and not ended: the object read next
    // takes number objectCount() (its constructor enters it first thing).
    unsigned objectCount() const { return _objects.count(); }
    void beginObject(unsigned number) { _building.push_back(number); }
    void endObject() { _building.pop_back(); }
    bool isBuilding(const TBTransObject* obj) const;
    // Objects that the reader allocated itself, as opposed to members that
    // a constructor built in place and entered under numbers of their own:
    // only the former may be held by counts and freed on their own.
    void markMade(const TBTransObject* obj);
    bool isMade(const TBTransObject* obj) const;
    // An object that the reader could not use and nobody holds: freed when
    // the numbers of its top-level object are forgotten, since a back
    // reference may still name it until then; a counted one only if still
    // nobody holds it then.
    void orphan(TBTransObject* obj);

    ~TBInTbl();

private:
    TBTransCltn _objects;
    TBTypeCltn _classes;
    int _objectLevel = 0;
    std::vector<unsigned> _building;
    std::vector<TBTransObject*> _orphans;
    std::vector<unsigned char> _made;  // by object number

    static void dropOrphan(TBTransObject* obj);
};

#endif
