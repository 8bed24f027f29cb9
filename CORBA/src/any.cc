// Values with their type; for now only strings.
#include "any.h"

#include <cstring>

CORBA_Any::CORBA_Any()
    : _kind(CORBA::tk_null), _value(nullptr), _size(0), _release(1), _refcount(1) {}

CORBA_Any::CORBA_Any(const CORBA_Any& other)
    : _kind(CORBA::tk_null), _value(nullptr), _size(0), _release(0), _refcount(1) {
    *this = other;
}

CORBA_Any& CORBA_Any::operator=(const CORBA_Any& other) {
    if (this == &other) return *this;
    releaseValue();
    _kind = other._kind;
    if (_kind == CORBA::tk_string) {
        _value = CORBA::strdup(static_cast<const char*>(other._value));
        _size = other._size;
    }
    _release = 1;
    return *this;
}

CORBA_Any::~CORBA_Any() { releaseValue(); }

void CORBA_Any::releaseValue() {
    if (_value && _release && _kind == CORBA::tk_string)
        CORBA::string_free(static_cast<char*>(_value));
    _value = nullptr;
    _size = 0;
}

void* CORBA_Any::value() const {
    if (_kind == CORBA::tk_string) return const_cast<void**>(&_value);
    return _value;
}

CORBA_Any* CORBA_Any::_duplicate(CORBA_Any* a) {
    if (a) a->_ref();
    return a;
}

CORBA_Any& operator<<=(CORBA_Any& a, const char* s) {
    // Copy first: s may be the string this Any holds now.
    char* copy = CORBA::strdup(s);
    CORBA::Long size = copy ? static_cast<CORBA::Long>(std::strlen(copy) + 1) : 0;
    a.releaseValue();
    a._kind = CORBA::tk_string;
    a._value = copy;
    a._size = size;
    a._release = 1;
    return a;
}

CORBA::Boolean operator>>=(const CORBA_Any& a, char*& s) {
    if (a._kind != CORBA::tk_string) return 0;
    s = CORBA::strdup(static_cast<const char*>(a._value));
    return 1;
}

namespace CORBA {
void release(CORBA_Any* a) {
    if (a && a->_deref() <= 0) delete a;
}
}  // namespace CORBA
