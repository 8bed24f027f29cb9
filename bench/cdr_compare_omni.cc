// The omniORB side of cdr_compare: the same cases on omniORB's
// cdrMemoryStream. It is built as a module of its own and loaded at run time,
// so that omniORB's CORBA namespace and ours never meet in one link.
#include <omniORB4/CORBA.h>

#include <cstring>
#include <string>
#include <vector>

#include "anybench.hh"
#include "cdr_clock.h"

namespace {

using cdrclock::kCount;
using cdrclock::nsPerCall;

template <class T>
double encodeValues(T value) {
    std::vector<T> values(kCount, value);
    cdrMemoryStream m;
    return nsPerCall([&] {
        m.rewindPtrs();
        for (const T& v : values) v >>= m;
        cdrclock::keep(m.bufPtr());
    });
}

template <class T>
double decodeValues(T value) {
    cdrMemoryStream w;
    for (int i = 0; i < kCount; ++i) value >>= w;
    std::string data(static_cast<const char*>(w.bufPtr()), w.bufSize());
    cdrMemoryStream m(&data[0], data.size());
    std::vector<T> values(kCount);
    return nsPerCall([&] {
        m.rewindInputPtr();
        for (T& v : values) v <<= m;
        cdrclock::keep(values[kCount - 1]);
    });
}

template <class Seq, class T>
Seq filled(T value) {
    Seq seq;
    seq.length(kCount);
    for (int i = 0; i < kCount; ++i) seq[i] = value;
    return seq;
}

template <class Seq, class T>
double encodeSequence(T value) {
    Seq seq = filled<Seq>(value);
    cdrMemoryStream m;
    return nsPerCall([&] {
        m.rewindPtrs();
        seq >>= m;
        cdrclock::keep(m.bufPtr());
    });
}

template <class Seq, class T>
double decodeSequence(T value) {
    Seq seq = filled<Seq>(value);
    cdrMemoryStream w;
    seq >>= w;
    std::string data(static_cast<const char*>(w.bufPtr()), w.bufSize());
    cdrMemoryStream m(&data[0], data.size());
    return nsPerCall([&] {
        m.rewindInputPtr();
        Seq out;  // a fresh sequence, as a skeleton's argument is
        out <<= m;
        cdrclock::keep(out.length());
    });
}

const std::string& text() {
    static const std::string t(cdrclock::kStringLength, 'k');
    return t;
}

double encodeStrings() {
    cdrMemoryStream m;
    return nsPerCall([&] {
        m.rewindPtrs();
        for (int i = 0; i < cdrclock::kStrings; ++i) m.marshalString(text().c_str());
        cdrclock::keep(m.bufPtr());
    });
}

double decodeStrings() {
    cdrMemoryStream w;
    for (int i = 0; i < cdrclock::kStrings; ++i) w.marshalString(text().c_str());
    std::string data(static_cast<const char*>(w.bufPtr()), w.bufSize());
    cdrMemoryStream m(&data[0], data.size());
    return nsPerCall([&] {
        m.rewindInputPtr();
        for (int i = 0; i < cdrclock::kStrings; ++i) {
            char* s = m.unmarshalString();
            cdrclock::keep(s);
            CORBA::string_free(s);
        }
    });
}

CORBA::Any anyOf(const std::string& n) {
    CORBA::Any a;
    if (n.compare(0, 12, "any_seq_long") == 0) {
        Bench::Longs seq;
        seq.length(kCount);
        for (int i = 0; i < kCount; ++i) seq[i] = 0x12345678;
        a <<= seq;
    } else {
        Bench::Sample s;
        s.id = 7;
        s.name = text().c_str();
        for (int i = 0; i < cdrclock::kSampleDoubles; ++i) s.values[i] = 3.25;
        a <<= s;
    }
    return a;
}

double encodeAny(const CORBA::Any& a) {
    cdrMemoryStream m;
    return nsPerCall([&] {
        m.rewindPtrs();
        a >>= m;
        cdrclock::keep(m.bufPtr());
    });
}

double decodeAny(const CORBA::Any& a) {
    cdrMemoryStream w;
    a >>= w;
    std::string data(static_cast<const char*>(w.bufPtr()), w.bufSize());
    cdrMemoryStream m(&data[0], data.size());
    return nsPerCall([&] {
        m.rewindInputPtr();
        CORBA::Any out;
        out <<= m;
        cdrclock::keep(out);
    });
}

}  // namespace

// Nanoseconds per run of the named case, or -1 for a name it does not know.
extern "C" double kelvanor_omni_cdr_ns(const char* name) {
    // A memory stream takes its string code sets from the ORB: without one
    // it has none and cannot marshal a string. No object adapter is made,
    // so nothing listens.
    static CORBA::ORB_var orb = [] {
        int argc = 1;
        char arg0[] = "cdr_compare";
        char* argv[] = {arg0, nullptr};
        return CORBA::ORB_init(argc, argv);
    }();
    const std::string n(name);
    if (n == "longs_encode") return encodeValues(CORBA::Long(0x12345678));
    if (n == "longs_decode") return decodeValues(CORBA::Long(0x12345678));
    if (n == "doubles_encode") return encodeValues(CORBA::Double(3.25));
    if (n == "doubles_decode") return decodeValues(CORBA::Double(3.25));
    if (n == "seq_long_encode") return encodeSequence<CORBA::LongSeq>(CORBA::Long(0x12345678));
    if (n == "seq_long_decode") return decodeSequence<CORBA::LongSeq>(CORBA::Long(0x12345678));
    if (n == "seq_double_encode") return encodeSequence<CORBA::DoubleSeq>(CORBA::Double(3.25));
    if (n == "seq_double_decode") return decodeSequence<CORBA::DoubleSeq>(CORBA::Double(3.25));
    if (n == "strings_encode") return encodeStrings();
    if (n == "strings_decode") return decodeStrings();
    if (n.compare(0, 4, "any_") == 0) {
        const CORBA::Any a = anyOf(n);
        return n.find("encode") != std::string::npos ? encodeAny(a) : decodeAny(a);
    }
    return -1;
}
