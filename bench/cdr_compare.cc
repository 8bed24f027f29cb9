// CDR speed against an independent ORB, in one process and one run: each
// case encodes or decodes the same values on our IIOP stream and on
// omniORB's memory stream, and one line per case goes to standard output:
//     cdr <case> <ours ns> <omniORB ns> <omniORB / ours>
// A ratio of 1 or more means ours is at least as fast. omniORB lives in a
// module loaded with dlopen (path built in, or the first argument), so the
// two CORBA namespaces never share a link.
#include <dlfcn.h>

#include <cstdio>
#include <string>
#include <vector>

#include "any.h"
#include "cdr_clock.h"
#include "mstrm.h"
#include "typecode.h"
#include "zebglob.h"
#include "zebseq.h"
#include "zebstrm.h"

namespace {

using cdrclock::kCount;
using cdrclock::nsPerCall;

// Values go one operator call each, on the stream held by its own type, as
// the protocol code holds it.
template <class T>
double encodeValues(T value) {
    std::vector<T> values(kCount, value);
    ZEBIIOPstream s;
    return nsPerCall([&] {
        s.rewindOutBuffer();
        for (const T& v : values) s << v;
        cdrclock::keep(s.outData());
    });
}

template <class T>
double decodeValues(T value) {
    ZEBIIOPstream w;
    for (int i = 0; i < kCount; ++i) w << value;
    std::string data(w.outData(), w.outLength());
    ZEBIIOPstream s;
    std::vector<T> values(kCount);
    return nsPerCall([&] {
        s.set_read_buffer(&data[0], data.size(), 0);
        s.newInEncapsulation();
        for (T& v : values) s >> v;
        cdrclock::keep(values[kCount - 1]);
    });
}

// Sequences go through the object stream interface, as generated code
// marshals them.
template <class T>
double encodeSequence(T value) {
    ZEBSequence<T> seq;
    seq.length(kCount);
    for (int i = 0; i < kCount; ++i) seq[i] = value;
    ZEBIIOPstream s;
    TBostream& strm = s;
    return nsPerCall([&] {
        s.rewindOutBuffer();
        seq.write(strm);
        cdrclock::keep(s.outData());
    });
}

template <class T>
double decodeSequence(T value) {
    ZEBSequence<T> seq;
    seq.length(kCount);
    for (int i = 0; i < kCount; ++i) seq[i] = value;
    ZEBIIOPstream w;
    seq.write(w);
    std::string data(w.outData(), w.outLength());
    ZEBIIOPstream s;
    TBistream& strm = s;
    return nsPerCall([&] {
        s.set_read_buffer(&data[0], data.size(), 0);
        s.newInEncapsulation();
        ZEBSequence<T> out;  // a fresh sequence, as a skeleton's argument is
        out.read(strm);
        cdrclock::keep(out.length());
    });
}

const std::string& text() {
    static const std::string t(cdrclock::kStringLength, 'k');
    return t;
}

double encodeStrings() {
    ZEBIIOPstream s;
    return nsPerCall([&] {
        s.rewindOutBuffer();
        for (int i = 0; i < cdrclock::kStrings; ++i) s << text().c_str();
        cdrclock::keep(s.outData());
    });
}

double decodeStrings() {
    ZEBIIOPstream w;
    for (int i = 0; i < cdrclock::kStrings; ++i) w << text().c_str();
    std::string data(w.outData(), w.outLength());
    ZEBIIOPstream s;
    return nsPerCall([&] {
        s.set_read_buffer(&data[0], data.size(), 0);
        s.newInEncapsulation();
        for (int i = 0; i < cdrclock::kStrings; ++i) {
            char* str = nullptr;
            s >> str;
            cdrclock::keep(str);
            CORBA::string_free(str);
        }
    });
}

// The Any cases' values with TypeCodes like those omniidl makes of
// anybench.idl, which go in the encapsulated form that omniORB writes.
CORBA_Any anyOf(const std::string& n) {
    ZEBGlobalTable::std_typecodes = 1;
    CORBA_MarshalOutBuffer b;
    if (n.compare(0, 12, "any_seq_long") == 0) {
        CORBA_TypeCode_var seq = new CORBA_TypeCode(CORBA::tk_sequence, 0, CORBA::_tc_long, 0);
        b << static_cast<unsigned long>(kCount);
        for (int i = 0; i < kCount; ++i) b << CORBA::Long(0x12345678);
        return CORBA_Any(new CORBA_TypeCode("IDL:Bench/Longs:1.0", "Longs", seq, 0), b);
    }
    CORBA_TypeCode_var arr =
        new CORBA_TypeCode(CORBA::tk_array, cdrclock::kSampleDoubles, CORBA::_tc_double, 0);
    CORBA_TypeCode_var doubles = new CORBA_TypeCode("IDL:Bench/Doubles:1.0", "Doubles", arr, 0);
    const ZEBTCMember m[] = {{"id", CORBA::_tc_long, nullptr},
                             {"name", CORBA::_tc_string, nullptr},
                             {"values", doubles, nullptr}};
    b << CORBA::Long(7) << text().c_str();
    for (int i = 0; i < cdrclock::kSampleDoubles; ++i) b << CORBA::Double(3.25);
    return CORBA_Any(new CORBA_TypeCode(CORBA::tk_struct, "IDL:Bench/Sample:1.0", "Sample", m, 3, 0),
                     b);
}

double encodeAny(const CORBA_Any& a) {
    ZEBIIOPstream s;
    return nsPerCall([&] {
        s.rewindOutBuffer();
        s << a;
        cdrclock::keep(s.outData());
    });
}

double decodeAny(const CORBA_Any& a) {
    ZEBIIOPstream w;
    w << a;
    std::string data(w.outData(), w.outLength());
    ZEBIIOPstream s;
    return nsPerCall([&] {
        s.set_read_buffer(&data[0], data.size(), 0);
        s.newInEncapsulation();
        CORBA_Any out;
        s >> out;
        cdrclock::keep(out.size());
    });
}

double oursNs(const std::string& n) {
    if (n == "longs_encode") return encodeValues(CORBA::Long(0x12345678));
    if (n == "longs_decode") return decodeValues(CORBA::Long(0x12345678));
    if (n == "doubles_encode") return encodeValues(CORBA::Double(3.25));
    if (n == "doubles_decode") return decodeValues(CORBA::Double(3.25));
    if (n == "seq_long_encode") return encodeSequence(CORBA::Long(0x12345678));
    if (n == "seq_long_decode") return decodeSequence(CORBA::Long(0x12345678));
    if (n == "seq_double_encode") return encodeSequence(CORBA::Double(3.25));
    if (n == "seq_double_decode") return decodeSequence(CORBA::Double(3.25));
    if (n == "strings_encode") return encodeStrings();
    if (n == "strings_decode") return decodeStrings();
    if (n.compare(0, 4, "any_") == 0) {
        const CORBA_Any a = anyOf(n);
        return n.find("encode") != std::string::npos ? encodeAny(a) : decodeAny(a);
    }
    return -1;
}

}  // namespace

int main(int argc, char** argv) {
    const char* module = argc > 1 ? argv[1] : KELVANOR_CDR_OMNI_MODULE;
    // RTLD_LOCAL: omniORB's symbols stay inside the module and its libraries.
    void* handle = dlopen(module, RTLD_NOW | RTLD_LOCAL);
    if (!handle) {
        std::fprintf(stderr, "cdr_compare: %s\n", dlerror());
        return 1;
    }
    using OmniFn = double (*)(const char*);
    auto omni = reinterpret_cast<OmniFn>(dlsym(handle, "kelvanor_omni_cdr_ns"));
    if (!omni) {
        std::fprintf(stderr, "cdr_compare: %s\n", dlerror());
        return 1;
    }
    // The two sides take turns, five rounds a case, and each keeps its best
    // round: a slower round is the machine's doing, not the code's, and
    // taking turns spreads a change in the machine's load over both.
    for (const char* name : cdrclock::kCases) {
        double ours = 0, theirs = 0;
        for (int round = 0; round < 5; ++round) {
            const double o = oursNs(name), t = omni(name);
            ours = round == 0 || o < ours ? o : ours;
            theirs = round == 0 || t < theirs ? t : theirs;
        }
        std::printf("cdr %s %.0f %.0f %.2f\n", name, ours, theirs, theirs / ours);
    }
    // The module stays loaded: omniORB's static destructors run at exit.
    return 0;
}
