// Named values and their lists.
#include "nvlist.h"

#include <iostream>
#include <memory>
#include <vector>

#include "any.h"
#include "tbiostrm.h"
#include "zebread.h"

CORBA_EXCEPTION_DEFINE(CORBA_NVList::Bounds, "CORBA::NVList::Bounds",
                       "IDL:omg.org/CORBA/NVList/Bounds:1.0", CORBA_UserException);

// ---------------------------------------------------------- CORBA_NamedValue

CORBA_NamedValue::CORBA_NamedValue()
    : _name(nullptr), _value(new CORBA_Any), _flags(0), _refcount(1) {}

CORBA_NamedValue::CORBA_NamedValue(const char* name, const CORBA_Any* value, CORBA::Flags flags)
    : _name(CORBA::strdup(name)),
      _value(value ? new CORBA_Any(*value) : new CORBA_Any),
      _flags(flags),
      _refcount(1) {}

CORBA_NamedValue::CORBA_NamedValue(const CORBA_NamedValue& other)
    : CORBA_NamedValue(other._name, other._value, other._flags) {}

CORBA_NamedValue::~CORBA_NamedValue() {
    CORBA::release(_value);
    CORBA::string_free(_name);
}

CORBA_NamedValue* CORBA_NamedValue::_duplicate(CORBA_NamedValue* nv) {
    if (nv) nv->_ref();
    return nv;
}

// -------------------------------------------------------------- CORBA_NVList

CORBA_NVList::CORBA_NVList(CORBA::ULong capacity)
    : _items(capacity ? new CORBA_NamedValue*[capacity] : nullptr),
      _count(0),
      _capacity(capacity),
      _refcount(1) {}

CORBA_NVList::~CORBA_NVList() {
    for (CORBA::ULong i = 0; i < _count; ++i) CORBA::release(_items[i]);
    delete[] _items;
}

CORBA_NamedValue* CORBA_NVList::append(CORBA_NamedValue* nv) {
    if (_count >= _capacity) resize();
    _items[_count++] = nv;
    return CORBA_NamedValue::_duplicate(nv);
}

CORBA_NamedValue* CORBA_NVList::add(CORBA::Flags flags) {
    return append(new CORBA_NamedValue(nullptr, nullptr, flags));
}

CORBA_NamedValue* CORBA_NVList::add_item(const char* name, CORBA::Flags flags) {
    return append(new CORBA_NamedValue(name, nullptr, flags));
}

CORBA_NamedValue* CORBA_NVList::add_value(const char* name, const CORBA_Any& value,
                                          CORBA::Flags flags) {
    return append(new CORBA_NamedValue(name, &value, flags));
}

CORBA_NamedValue* CORBA_NVList::item(CORBA::ULong i) {
    if (i >= _count) throw Bounds();
    return CORBA_NamedValue::_duplicate(_items[i]);
}

void CORBA_NVList::remove(CORBA::ULong i) {
    if (i >= _count) throw Bounds();
    CORBA::release(_items[i]);
    for (CORBA::ULong j = i + 1; j < _count; ++j) _items[j - 1] = _items[j];
    --_count;
}

void CORBA_NVList::resize() {
    CORBA::ULong bigger = _capacity ? 2 * _capacity : 2;
    CORBA_NamedValue** items = new CORBA_NamedValue*[bigger];
    for (CORBA::ULong i = 0; i < _count; ++i) items[i] = _items[i];
    delete[] _items;
    _items = items;
    _capacity = bigger;
}

void CORBA_NVList::free_out_memory() {
    for (CORBA::ULong i = 0; i < _count; ++i) {
        CORBA_NamedValue* nv = _items[i];
        if (!(nv->_flags & CORBA::ARG_OUT) || !nv->_value) continue;
        CORBA_Any* v = nv->_value;
        nv->_value = nullptr;
        if (v->_deref() <= 0)
            delete v;
        else
            CORBA::release(v);
    }
}

CORBA_NVList* CORBA_NVList::_duplicate(CORBA_NVList* l) {
    if (l) l->_ref();
    return l;
}

namespace CORBA {
void release(CORBA_NamedValue* nv) {
    if (nv && nv->_deref() <= 0) delete nv;
}
void release(CORBA_NVList* l) {
    if (l && l->_deref() <= 0) delete l;
}
}  // namespace CORBA

// ------------------------------------------------------ CORBA_NamedValue_var

CORBA_NamedValue_var& CORBA_NamedValue_var::operator=(CORBA_NamedValue* p) {
    if (p != _ptr) {
        CORBA::release(_ptr);
        _ptr = p;
    }
    return *this;
}

CORBA_NamedValue_var& CORBA_NamedValue_var::operator=(const CORBA_NamedValue_var& other) {
    // Duplicate before releasing: both holders may share one object.
    CORBA_NamedValue* p = CORBA_NamedValue::_duplicate(other._ptr);
    CORBA::release(_ptr);
    _ptr = p;
    return *this;
}

CORBA_NamedValue* CORBA_NamedValue_var::_retn() {
    CORBA_NamedValue* p = _ptr;
    _ptr = nullptr;
    return p;
}

// ------------------------------------------------------------------ streams

TBostream& operator<<(TBostream& strm, const CORBA_NamedValue& nv) {
    strm << nv.name();
    if (nv.value())
        strm << *nv.value();
    else
        strm << CORBA_Any();
    return strm << static_cast<unsigned long>(nv.flags());
}

TBistream& operator>>(TBistream& strm, CORBA_NamedValue& nv) {
    CORBA_String_var name;
    strm >> name.out();
    ZEBcheckStream(strm);
    CORBA_Any_var value = new CORBA_Any;
    strm >> *value;
    unsigned long flags = 0;
    strm >> flags;
    ZEBcheckStream(strm);
    CORBA::string_free(nv._name);
    nv._name = name._retn();
    CORBA::release(nv._value);
    nv._value = value._retn();
    nv._flags = static_cast<CORBA::Flags>(flags);
    return strm;
}

std::ostream& operator<<(std::ostream& os, const CORBA_NamedValue& nv) {
    if (!ZEBisConsole(os)) {
        TBostream strm(os);
        strm << nv;
        return os;
    }
    os << "Name: " << (nv.name() ? nv.name() : "") << std::endl;
    if (nv.value())
        os << "Value: " << *nv.value() << std::endl;
    else
        os << "Value: (null)" << std::endl;
    return os;
}

TBostream& operator<<(TBostream& strm, const CORBA_NVList& l) {
    strm << static_cast<unsigned long>(l.count());
    for (CORBA::ULong i = 0; i < l.count(); ++i) strm << *l._items[i];
    return strm;
}

TBistream& operator>>(TBistream& strm, CORBA_NVList& l) {
    unsigned long count = 0;
    strm >> count;
    ZEBcheckStream(strm);
    const CORBA::ULong n = ZEBcheckCount(count);
    // The count is the peer's word: the items are gathered as they really
    // arrive, and only a complete list replaces the old one.
    struct Gathered {
        std::vector<CORBA_NamedValue*> items;
        ~Gathered() {
            for (CORBA_NamedValue* nv : items) CORBA::release(nv);
        }
    } got;
    ZEBReadGuard guard(strm);
    for (CORBA::ULong i = 0; i < n; ++i) {
        std::unique_ptr<CORBA_NamedValue> nv(new CORBA_NamedValue);
        strm >> *nv;
        guard.check();
        got.items.push_back(nv.release());
    }
    for (CORBA::ULong i = 0; i < l._count; ++i) CORBA::release(l._items[i]);
    delete[] l._items;
    l._items = n ? new CORBA_NamedValue*[n] : nullptr;
    for (CORBA::ULong i = 0; i < n; ++i) l._items[i] = got.items[i];
    got.items.clear();
    l._count = l._capacity = n;
    return strm;
}
