// The basic vocabulary of the broker: fixed-width CORBA types, the heap
// string helpers every interface string goes through, the string hash, the
// in-memory byte-order marker and the owning string holder CORBA_String_var.
#ifndef KELVANOR_CORBA_H
#define KELVANOR_CORBA_H

#include <cstddef>
#include <cstdint>
#include <iosfwd>

namespace CORBA {

typedef int16_t Short;
typedef uint16_t UShort;
typedef int32_t Long;
typedef uint32_t ULong;
typedef float Float;
typedef double Double;
typedef unsigned char Boolean;
typedef unsigned char Octet;
typedef char Char;

// Held in 32 bits on every stream; values beyond MAYBE can arrive from a
// peer and are kept as they are.
enum CompletionStatus : uint32_t {
    COMPLETED_YES = 0,
    COMPLETED_NO = 1,
    COMPLETED_MAYBE = 2
};

// Strings that cross an interface come from here and go back through
// string_free. string_alloc(n) gives room for n characters and a NUL; the
// memory is new[] memory, so the base streams may also free it.
char* string_alloc(ULong len);
// Null stays null.
char* strdup(const char* s);
inline char* string_dup(const char* s) { return CORBA::strdup(s); }
// Tolerates null.
void string_free(char* s);

// 0 for null or "". Otherwise v = (v * 2) ^ c over the bytes, in 32 bits,
// and the low 31 bits of the result.
ULong hash(const char* s);

// Marker for in-memory CDR blocks: 1 on a big-endian host, 0 on a
// little-endian one. It is the reverse sense of the GIOP byte-order flag and
// is only ever compared with flags derived from itself.
extern const Boolean ByteOrder;

}  // namespace CORBA

// True for cout, cerr and clog: the text operators print for people there
// and write the stream form on any other ostream.
bool ZEBisConsole(const std::ostream& os);

// Owner of one string from CORBA::string_alloc. Following the usual string
// holder of the C++ mapping: a char* is adopted, a const char* is copied.
// So `v = CORBA::strdup(x)` and `v = "text"` are both right, while a char*
// that did not come from string_alloc must be passed as const char*.
class CORBA_String_var {
public:
    CORBA_String_var() : _ptr(nullptr) {}
    CORBA_String_var(std::nullptr_t) : _ptr(nullptr) {}
    CORBA_String_var(char* p) : _ptr(p) {}
    CORBA_String_var(const char* p) : _ptr(CORBA::strdup(p)) {}
    CORBA_String_var(const CORBA_String_var& other) : _ptr(CORBA::strdup(other._ptr)) {}
    CORBA_String_var(CORBA_String_var&& other) noexcept : _ptr(other._ptr) {
        other._ptr = nullptr;
    }
    ~CORBA_String_var() { CORBA::string_free(_ptr); }

    CORBA_String_var& operator=(std::nullptr_t) { return *this = static_cast<char*>(nullptr); }
    CORBA_String_var& operator=(char* p);
    CORBA_String_var& operator=(const char* p);
    CORBA_String_var& operator=(const CORBA_String_var& other);
    CORBA_String_var& operator=(CORBA_String_var&& other) noexcept;

    operator char*&() { return _ptr; }
    operator const char*() const { return _ptr; }

    // No range check: the index must lie within the string.
    char& operator[](CORBA::ULong i) { return _ptr[i]; }
    char operator[](CORBA::ULong i) const { return _ptr[i]; }

    const char* in() const { return _ptr; }
    char*& inout() { return _ptr; }
    // Frees the present string and hands out the slot for a callee to fill.
    char*& out();
    // Gives up ownership: the caller frees the result.
    char* _retn();

private:
    char* _ptr;  // null or from CORBA::string_alloc; owned
};

#endif
