// The in-memory form of the unbounded record sequences of the protocol
// (service context lists, profile sequences): buffer, length, maximum and a
// release flag, as the generated sequences have. The element type needs a
// default constructor, copy assignment, and free stream operators found by
// argument-dependent lookup.
#ifndef KELVANOR_ZEBSEQ_H
#define KELVANOR_ZEBSEQ_H

#include <memory>
#include <type_traits>

#include <kelvanor/corba.h>
#include <kelvanor/except.h>
#include <kelvanor/tbiostrm.h>
#include <kelvanor/zebread.h>

template <class T>
class ZEBSequence {
public:
    static T* allocbuf(CORBA::ULong n) { return n ? new T[n] : nullptr; }
    static void freebuf(T* buf) { delete[] buf; }

    explicit ZEBSequence(CORBA::ULong max = 0)
        : _buffer(allocbuf(max)), _length(0), _maximum(max), _release(1) {}
    // Adopts data as it is; it is freed later only if release is set.
    ZEBSequence(CORBA::ULong max, CORBA::ULong length, T* data, CORBA::Boolean release = 0)
        : _buffer(data), _length(length), _maximum(max), _release(release) {}
    ZEBSequence(const ZEBSequence& other)
        : _buffer(allocbuf(other._length)), _length(other._length),
          _maximum(other._length), _release(1) {
        for (CORBA::ULong i = 0; i < _length; ++i) _buffer[i] = other._buffer[i];
    }
    // Reallocates only if other's length is above both length and maximum.
    ZEBSequence& operator=(const ZEBSequence& other) {
        if (this == &other) return *this;
        if (other._length > _length && other._length > _maximum) {
            std::unique_ptr<T[]> fresh(new T[other._length]);
            for (CORBA::ULong i = 0; i < other._length; ++i) fresh[i] = other._buffer[i];
            adopt(fresh.release(), other._length);
        } else {
            for (CORBA::ULong i = 0; i < other._length; ++i) _buffer[i] = other._buffer[i];
        }
        _length = other._length;
        return *this;
    }
    ~ZEBSequence() {
        if (_release) freebuf(_buffer);
    }

    CORBA::ULong maximum() const { return _maximum; }
    CORBA::ULong length() const { return _length; }
    CORBA::Boolean release() const { return _release; }
    // Grows to exactly n if n is above the maximum, keeping the elements;
    // slots between the old and the new length are reset to T().
    void length(CORBA::ULong n) {
        if (n > _maximum) {
            std::unique_ptr<T[]> fresh(new T[n]);
            // _length <= _maximum < n; the bound says so to the optimiser,
            // which otherwise warns of an overrun that cannot happen.
            const CORBA::ULong keep = _length < n ? _length : n;
            for (CORBA::ULong i = 0; i < keep; ++i) fresh[i] = _buffer[i];
            adopt(fresh.release(), n);
        } else {
            for (CORBA::ULong i = _length; i < n; ++i) _buffer[i] = T();
        }
        _length = n;
    }

    // Out of range: CORBA_BAD_PARAM.
    T& operator[](CORBA::ULong i) {
        if (i >= _length) throw CORBA_BAD_PARAM(0, CORBA::COMPLETED_NO);
        return _buffer[i];
    }
    const T& operator[](CORBA::ULong i) const {
        if (i >= _length) throw CORBA_BAD_PARAM(0, CORBA::COMPLETED_NO);
        return _buffer[i];
    }
    T* get_buffer() { return _buffer; }
    const T* get_buffer() const { return _buffer; }

    // Count, then the elements.
    void write(TBostream& strm) const {
        strm << static_cast<unsigned long>(_length);
        if constexpr (kBulk) {
            // An empty array would still align the stream; no elements, no call.
            if (_length != 0) strm.put(_buffer, _length);
            return;
        }
        for (CORBA::ULong i = 0; i < _length; ++i) strm << _buffer[i];
    }

    // Reads a count and that many elements. The count comes from the peer:
    // when it does not fit the present storage, a new buffer grows with the
    // elements that really arrive, so a lying count ends in CORBA_MARSHAL
    // from the stream long before it costs memory. On a throw the sequence
    // keeps its old buffer, or the elements read so far into its own.
    void read(TBistream& strm) {
        unsigned long count = 0;
        strm >> count;
        if (count > 0xffffffffUL) throw CORBA_MARSHAL(0, CORBA::COMPLETED_NO);
        const CORBA::ULong n = static_cast<CORBA::ULong>(count);
        ZEBReadGuard guard(strm);
        if constexpr (kBulk) {
            readBulk(strm, n, guard);
            return;
        }
        if (n <= _length || n <= _maximum) {
            for (CORBA::ULong i = 0; i < n; ++i) {
                _buffer[i] = T();
                strm >> _buffer[i];
                guard.check();
            }
            _length = n;
            return;
        }
        std::unique_ptr<T[]> fresh;
        CORBA::ULong cap = 0;
        for (CORBA::ULong i = 0; i < n; ++i) {
            if (i == cap) {
                CORBA::ULong next = cap ? cap : kFirstStep;
                next = next >= n - cap ? n : cap + next;
                std::unique_ptr<T[]> bigger(new T[next]);
                for (CORBA::ULong j = 0; j < cap; ++j) bigger[j] = fresh[j];
                fresh = std::move(bigger);
                cap = next;
            }
            strm >> fresh[i];
            guard.check();
        }
        adopt(fresh.release(), n);
        _length = n;
    }

private:
    static constexpr CORBA::ULong kFirstStep = 8;
    // Numbers of two bytes or more move as one array: the streams give an
    // array the bytes (or text) of its elements one after the other. Octets
    // and chars stay one by one, as their text form differs from an array's.
    static constexpr bool kBulk = std::is_arithmetic<T>::value && sizeof(T) > 1;
    // Elements that may be read into a new buffer at once; past this the
    // buffer grows as the elements arrive, as for the other element types.
    static constexpr CORBA::ULong kBulkDirect = 64 * 1024 / (sizeof(T) > 0 ? sizeof(T) : 1);

    // A stream that does not throw on short data (the binary buffer stream)
    // is stopped by the guard once a step finds nothing, so a lying count
    // costs at most one step past the data that is there.
    void readBulk(TBistream& strm, CORBA::ULong n, ZEBReadGuard& guard) {
        if (n == 0) {
            _length = 0;
            return;
        }
        if (n <= _length || n <= _maximum) {
            for (CORBA::ULong i = 0; i < n; ++i) _buffer[i] = T();
            strm.get(_buffer, n);
            guard.check();
            _length = n;
            return;
        }
        std::unique_ptr<T[]> fresh;
        CORBA::ULong cap = 0;
        for (CORBA::ULong next = n <= kBulkDirect ? n : kBulkDirect; cap < n;) {
            std::unique_ptr<T[]> bigger(new T[next]);
            for (CORBA::ULong j = 0; j < cap; ++j) bigger[j] = fresh[j];
            strm.get(bigger.get() + cap, next - cap);
            guard.check();
            fresh = std::move(bigger);
            cap = next;
            next = cap >= n - cap ? n : 2 * cap;
        }
        adopt(fresh.release(), n);
        _length = n;
    }

    // Kept out of line: GCC 12 at -O3, inlining this after a copy loop it
    // had reshaped, dropped the null test of delete[] and freed through a
    // null buffer (seen growing an empty sequence of structures). The
    // growth path is rare enough for the call to cost nothing.
    __attribute__((noinline)) void adopt(T* buf, CORBA::ULong max) {
        if (_release) freebuf(_buffer);
        _buffer = buf;
        _maximum = max;
        _release = 1;
    }

    T* _buffer;             // _maximum slots, or null when _maximum is 0
    CORBA::ULong _length;   // valid elements lie in [0, _length)
    CORBA::ULong _maximum;
    CORBA::Boolean _release;
};

#endif
