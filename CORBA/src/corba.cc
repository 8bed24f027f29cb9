// String helpers, the string hash, the byte-order marker and CORBA_String_var.
#include "corba.h"

#include <cstring>
#include <iostream>

namespace CORBA {

#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
const Boolean ByteOrder = 1;
#else
const Boolean ByteOrder = 0;
#endif

char* string_alloc(ULong len) {
    // new[] rather than malloc: the base object streams free the strings
    // they replace with delete[], and both must agree.
    char* p = new char[static_cast<size_t>(len) + 1];
    p[0] = '\0';
    return p;
}

char* strdup(const char* s) {
    if (!s) return nullptr;
    size_t n = std::strlen(s);
    char* p = string_alloc(static_cast<ULong>(n));
    std::memcpy(p, s, n + 1);
    return p;
}

void string_free(char* s) { delete[] s; }

ULong hash(const char* s) {
    if (!s) return 0;
    ULong v = 0;
    for (const unsigned char* p = reinterpret_cast<const unsigned char*>(s); *p; ++p)
        v = (v << 1) ^ *p;
    return v & 0x7fffffffu;
}

}  // namespace CORBA

bool ZEBisConsole(const std::ostream& os) {
    return &os == &std::cout || &os == &std::cerr || &os == &std::clog;
}

CORBA_String_var& CORBA_String_var::operator=(char* p) {
    if (p != _ptr) {
        CORBA::string_free(_ptr);
        _ptr = p;
    }
    return *this;
}

CORBA_String_var& CORBA_String_var::operator=(const char* p) {
    if (p != _ptr) {
        char* copy = CORBA::strdup(p);
        CORBA::string_free(_ptr);
        _ptr = copy;
    }
    return *this;
}

CORBA_String_var& CORBA_String_var::operator=(const CORBA_String_var& other) {
    return *this = static_cast<const char*>(other._ptr);
}

CORBA_String_var& CORBA_String_var::operator=(CORBA_String_var&& other) noexcept {
    if (this != &other) {
        CORBA::string_free(_ptr);
        _ptr = other._ptr;
        other._ptr = nullptr;
    }
    return *this;
}

char*& CORBA_String_var::out() {
    CORBA::string_free(_ptr);
    _ptr = nullptr;
    return _ptr;
}

char* CORBA_String_var::_retn() {
    char* p = _ptr;
    _ptr = nullptr;
    return p;
}
