// Identity tables of the object streams and the open-address table shape.
#include "tbiotbl.h"

#include <cstdint>

#include "tbresrc.h"
#include "tbtinfo.h"

void TBHashShape::setCapacity(unsigned n) {
    unsigned b = 0;
    while (b < 32 && (n >> b) != 0) ++b;
    if (n & (n - 1)) ++b;  // not a power of two (0 and exact powers stay)
    setSlots(b > 31 ? 31 : b);
}

void TBHashShape::setSlots(unsigned bitCount) {
    bits = bitCount;
    slots = 1u << bitCount;
    mask = slots - 1;
}

// Only the low 32 bits of an address feed the hash; the probe compares the
// whole pointer.
static uint32_t ptrKey(const void* p) {
    return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(p));
}

TBPtrDict::TBPtrDict(unsigned capacity) : _count(0) {
    _shape.setCapacity(capacity);
    _slots = new Slot[_shape.slots]();
}

TBPtrDict::~TBPtrDict() { delete[] _slots; }

unsigned TBPtrDict::slotOf(const void* key) const {
    unsigned i = _shape.home(ptrKey(key));
    while (_slots[i].key && _slots[i].key != key) i = _shape.below(i);
    return i;
}

bool TBPtrDict::add(const void* key, int& number) {
    unsigned i = slotOf(key);
    if (_slots[i].key) {
        number = _slots[i].number;
        return false;
    }
    _slots[i].key = key;
    _slots[i].number = number;
    if (++_count > _shape.slots - 1) grow();
    return true;
}

int TBPtrDict::find(const void* key) const {
    const Slot& s = _slots[slotOf(key)];
    return s.key ? s.number : -1;
}

void TBPtrDict::clear() {
    for (unsigned i = 0; i < _shape.slots; ++i) _slots[i] = Slot{nullptr, 0};
    _count = 0;
}

// Doubles the slots and re-enters the entries in old slot order.
void TBPtrDict::grow() {
    Slot* old = _slots;
    unsigned oldSlots = _shape.slots;
    _shape.setSlots(_shape.bits + 1);
    _slots = new Slot[_shape.slots]();
    for (unsigned i = 0; i < oldSlots; ++i) {
        if (old[i].key) _slots[slotOf(old[i].key)] = old[i];
    }
    delete[] old;
}

bool TBTransDict::add(const TBTransObject* obj, int& number) {
    number = _last + 1;
    if (!TBPtrDict::add(obj, number)) return false;
    _last = number;
    return true;
}

void TBTransDict::clear() {
    TBPtrDict::clear();
    _last = -1;
}

bool TBClassInfoDict::add(const TBTypeInfo* info, int& number) {
    number = _last + 1;
    if (!TBPtrDict::add(info, number)) return false;
    _last = number;
    return true;
}

void TBClassInfoDict::clear() {
    TBPtrDict::clear();
    _last = -1;
}

TBOutTbl::TBOutTbl() : TBTransDict(256), _classes(256) {}

TBInTbl::TBInTbl() : TBTransSet(16), _objects(256), _classes(256) {}

int TBInTbl::add(TBTransObject& obj) {
    if (contains(&obj)) return -1;
    int index = _objects.add(&obj);
    TBPtrDict::add(&obj, index);
    return index;
}

void TBInTbl::clearObjects() {
    _objects.clear();
    _made.clear();
    TBPtrDict::clear();
    std::vector<TBTransObject*> gone;
    gone.swap(_orphans);
    for (TBTransObject* obj : gone) dropOrphan(obj);
}

TBInTbl::~TBInTbl() {
    for (TBTransObject* obj : _orphans) dropOrphan(obj);
}

void TBInTbl::orphan(TBTransObject* obj) {
    for (TBTransObject* o : _orphans)
        if (o == obj) return;
    _orphans.push_back(obj);
}

void TBInTbl::dropOrphan(TBTransObject* obj) {
    // A counted object that a later part of the graph took up is its
    // holder's now.
    const TBResource* r = dynamic_cast<const TBResource*>(obj);
    if (!r || r->refCount() == 0) delete obj;
}

void TBInTbl::markMade(const TBTransObject* obj) {
    const int number = find(obj);
    if (number < 0) return;
    if (_made.size() <= static_cast<unsigned>(number)) _made.resize(number + 1u, 0);
    _made[number] = 1;
}

bool TBInTbl::isMade(const TBTransObject* obj) const {
    const int number = find(obj);
    return number >= 0 && static_cast<unsigned>(number) < _made.size() && _made[number];
}

bool TBInTbl::isBuilding(const TBTransObject* obj) const {
    for (unsigned number : _building)
        if (_objects.at(static_cast<int>(number)) == obj) return true;
    return false;
}
