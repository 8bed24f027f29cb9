// The two sequences the runtime itself needs: CORBA_OctetSequence (object
// keys, reference data, principals) and CORBA_StringSequence (arguments and
// environments of implementation definitions), with their _var holders and
// their stream and printing forms.
#ifndef KELVANOR_SEQUENCE_H
#define KELVANOR_SEQUENCE_H

#include <iosfwd>

#include <kelvanor/corba.h>

class TBistream;
class TBostream;

// Bytes with a length, a maximum and a release flag (the buffer is freed by
// the sequence only if the flag is set). Reference counted: a new sequence
// has one reference, CORBA::release drops one and deletes at zero.
class CORBA_OctetSequence {
public:
    static CORBA::Octet* allocbuf(CORBA::ULong n);
    static void freebuf(CORBA::Octet* buf);  // tolerates null

    explicit CORBA_OctetSequence(CORBA::ULong max = 0);
    // Adopts data as it is; it is freed later only if release is set.
    CORBA_OctetSequence(CORBA::ULong max, CORBA::ULong length, CORBA::Octet* data,
                        CORBA::Boolean release = 0);
    CORBA_OctetSequence(const CORBA_OctetSequence& other);
    // Reallocates only if other's length is above both length and maximum.
    CORBA_OctetSequence& operator=(const CORBA_OctetSequence& other);
    ~CORBA_OctetSequence();

    CORBA::ULong maximum() const { return _maximum; }
    CORBA::ULong length() const { return _length; }
    // Grows to exactly n if n is above the maximum; bytes between the old
    // and the new length are zero.
    void length(CORBA::ULong n);
    CORBA::Boolean release() const { return _release; }

    // Out of range: CORBA_BAD_PARAM.
    CORBA::Octet& operator[](CORBA::ULong i) {
        if (i >= _length) outOfRange();
        return _buffer[i];
    }
    const CORBA::Octet& operator[](CORBA::ULong i) const {
        if (i >= _length) outOfRange();
        return _buffer[i];
    }
    CORBA::Octet* get_buffer() { return _buffer; }
    const CORBA::Octet* get_buffer() const { return _buffer; }

    // The length, XORed with every byte.
    CORBA::ULong hash() const;
    // Difference of the lengths, else memcmp of the bytes.
    int compare(const CORBA_OctetSequence& other) const;

    static CORBA_OctetSequence* _duplicate(CORBA_OctetSequence* s);
    void _ref() { ++_refcount; }
    // Drops one reference and returns what is left; the caller deletes at 0.
    CORBA::Long _deref() { return --_refcount; }

    friend TBistream& operator>>(TBistream& strm, CORBA_OctetSequence& s);

private:
    [[noreturn]] static void outOfRange();
    // Replaces the buffer by an owned one of exactly n bytes, keeping the
    // first `keep` bytes.
    void reallocate(CORBA::ULong n, CORBA::ULong keep);

    CORBA::Octet* _buffer;   // _maximum bytes, or null when _maximum is 0
    CORBA::ULong _length;    // valid bytes lie in [0, _length)
    CORBA::ULong _maximum;
    CORBA::Boolean _release;
    CORBA::Long _refcount;
};

namespace CORBA {
void release(CORBA_OctetSequence* s);  // one reference less; null is ignored
inline Boolean is_nil(const CORBA_OctetSequence* s) { return s == nullptr; }
}  // namespace CORBA

// Owns one reference; a copy of the holder shares the sequence.
class CORBA_OctetSequence_var {
public:
    CORBA_OctetSequence_var() : _ptr(nullptr) {}
    CORBA_OctetSequence_var(CORBA_OctetSequence* p) : _ptr(p) {}
    CORBA_OctetSequence_var(const CORBA_OctetSequence_var& other)
        : _ptr(CORBA_OctetSequence::_duplicate(other._ptr)) {}
    ~CORBA_OctetSequence_var() { CORBA::release(_ptr); }

    CORBA_OctetSequence_var& operator=(CORBA_OctetSequence* p);
    CORBA_OctetSequence_var& operator=(const CORBA_OctetSequence_var& other);

    CORBA_OctetSequence* operator->() const { return _ptr; }
    operator CORBA_OctetSequence*() const { return _ptr; }
    CORBA::Octet& operator[](CORBA::ULong i) { return (*_ptr)[i]; }
    CORBA_OctetSequence* ptr() const { return _ptr; }
    CORBA_OctetSequence* _retn();

private:
    CORBA_OctetSequence* _ptr;
};

// Strings with a length, a maximum and a release flag. When the flag is set
// the sequence owns its buffer and every non-null element in [0, maximum).
class CORBA_StringSequence {
public:
    // What operator[] gives: assignment frees the string it replaces, if the
    // sequence owns its elements. A char* is adopted, a const char* or
    // another element copied, as with CORBA_String_var.
    class Sequence_string {
    public:
        Sequence_string(char*& slot, CORBA::Boolean release) : _slot(slot), _release(release) {}
        Sequence_string(const Sequence_string&) = default;
        Sequence_string& operator=(char* p);
        Sequence_string& operator=(const char* p);
        Sequence_string& operator=(const CORBA_String_var& v) {
            return *this = static_cast<const char*>(v);
        }
        Sequence_string& operator=(const Sequence_string& other) {
            return *this = static_cast<const char*>(other._slot);
        }
        operator char*&() { return _slot; }
        operator const char*() const { return _slot; }

    private:
        char*& _slot;
        CORBA::Boolean _release;
    };

    static char** allocbuf(CORBA::ULong n);  // n null pointers
    static void freebuf(char** buf);         // the array only; tolerates null

    explicit CORBA_StringSequence(CORBA::ULong max = 0);
    // Adopts data as it is.
    CORBA_StringSequence(CORBA::ULong max, CORBA::ULong length, char** data,
                         CORBA::Boolean release = 0);
    CORBA_StringSequence(const CORBA_StringSequence& other);  // deep
    CORBA_StringSequence& operator=(const CORBA_StringSequence& other);  // deep
    ~CORBA_StringSequence();

    CORBA::ULong maximum() const { return _maximum; }
    CORBA::ULong length() const { return _length; }
    // Grows to exactly n zeroed slots if n is above the maximum; shrinking
    // frees nothing.
    void length(CORBA::ULong n);
    CORBA::Boolean release() const { return _release; }

    // Out of range: CORBA_BAD_PARAM.
    Sequence_string operator[](CORBA::ULong i) {
        if (i >= _length) outOfRange();
        return Sequence_string(_buffer[i], _release);
    }
    const char* operator[](CORBA::ULong i) const {
        if (i >= _length) outOfRange();
        return _buffer[i];
    }
    char** get_buffer() { return _buffer; }
    const char* const* get_buffer() const { return _buffer; }

    friend TBistream& operator>>(TBistream& strm, CORBA_StringSequence& s);

private:
    [[noreturn]] static void outOfRange();
    void freeAll();  // elements and buffer, if owned

    char** _buffer;          // _maximum slots, or null when _maximum is 0
    CORBA::ULong _length;
    CORBA::ULong _maximum;
    CORBA::Boolean _release;
};

// Owns the sequence; a copy of the holder is a deep copy.
class CORBA_StringSequence_var {
public:
    CORBA_StringSequence_var() : _ptr(nullptr) {}
    CORBA_StringSequence_var(CORBA_StringSequence* p) : _ptr(p) {}
    CORBA_StringSequence_var(const CORBA_StringSequence_var& other);
    ~CORBA_StringSequence_var() { delete _ptr; }

    CORBA_StringSequence_var& operator=(CORBA_StringSequence* p);
    CORBA_StringSequence_var& operator=(const CORBA_StringSequence_var& other);

    CORBA_StringSequence* operator->() const { return _ptr; }
    operator CORBA_StringSequence*() const { return _ptr; }
    CORBA_StringSequence::Sequence_string operator[](CORBA::ULong i) { return (*_ptr)[i]; }
    CORBA_StringSequence* ptr() const { return _ptr; }
    CORBA_StringSequence* _retn();

private:
    CORBA_StringSequence* _ptr;
};

// Difference of the lengths; else the first non-zero strcmp; else 0. A null
// element sorts before any string.
int compare(const CORBA_StringSequence& a, const CORBA_StringSequence& b);
// The length, XORed with CORBA::hash of every element.
CORBA::ULong hash(const CORBA_StringSequence& s);

// Stream form: unsigned long length, then the bytes or the strings. The
// pointer and _var writers throw CORBA_BAD_PARAM for null before writing.
// Readers throw CORBA_MARSHAL when the stream runs dry.
TBostream& operator<<(TBostream& strm, const CORBA_OctetSequence& s);
TBostream& operator<<(TBostream& strm, const CORBA_OctetSequence* s);
TBostream& operator<<(TBostream& strm, const CORBA_OctetSequence_var& s);
TBistream& operator>>(TBistream& strm, CORBA_OctetSequence& s);
// A null target gets a new sequence.
TBistream& operator>>(TBistream& strm, CORBA_OctetSequence*& s);
TBistream& operator>>(TBistream& strm, CORBA_OctetSequence_var& s);

TBostream& operator<<(TBostream& strm, const CORBA_StringSequence& s);
TBistream& operator>>(TBistream& strm, CORBA_StringSequence& s);

// On cout, cerr and clog: "SEQUENCE NAME: ...", the count and one line per
// element. On any other ostream: the stream form.
std::ostream& operator<<(std::ostream& os, const CORBA_OctetSequence& s);
std::ostream& operator<<(std::ostream& os, const CORBA_StringSequence& s);

#endif
