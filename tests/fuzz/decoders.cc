#include "decoders.h"

#include <cstring>
#include <memory>
#include <string>

#include "any.h"
#include "context.h"
#include "corba.h"
#include "except.h"
#include "giop.h"
#include "impldef.h"
#include "mstrm.h"
#include "nvlist.h"
#include "object.h"
#include "sequence.h"
#include "tbiostrm.h"
#include "typecode.h"
#include "zebglob.h"
#include "zebstring.h"

namespace kfuzz {

namespace {

void primitives(TBistream& s) {
    char c;
    unsigned char o;
    short h;
    unsigned short uh;
    int i;
    long l;
    unsigned long ul;
    float f;
    double d;
    s >> c >> o >> h >> uh >> i >> l >> ul >> f >> d;
    (void)s.get();
}

template <class T>
void array(TBistream& s, unsigned n) {
    std::unique_ptr<T[]> a(new T[n ? n : 1]);
    s.get(a.get(), n);
}

// A record read into a value of its own.
template <class T>
void record(TBistream& s) {
    T v;
    s >> v;
}

// A record that the stream allocates, freed again.
template <class T>
void made(TBistream& s) {
    T* v = nullptr;
    s >> v;
    delete v;
}

}  // namespace

void decodeOne(TBistream& s, uint8_t op, bool growsTargets) {
    const unsigned arg = op >> 5;  // a small parameter for some decoders
    switch ((op & 31) % 26) {  // the low five bits pick, the high three are arg
    case 0:
        primitives(s);
        break;
    case 1: {
        CORBA_String_var text;
        s >> text.out();
        break;
    }
    case 2: {
        // Into a target that already holds text: kept or replaced.
        // Without growsTargets the target has more room than any input
        // that the fuzz runs give (-max_len is far below it).
        static const std::string roomy(1 << 16, 'x');
        const char* held = !growsTargets ? roomy.c_str() : (arg & 1) ? "x" : "a longer text held";
        char* const old = CORBA::string_dup(held);
        char* text = old;
        try {
            s >> text;
        } catch (...) {
            // Failed before the target changed, or after the stream freed it.
            CORBA::string_free(text);
            throw;
        }
        // A count of 0 gives null and leaves the old text to its owner; a
        // replaced target was freed by the stream.
        CORBA::string_free(text ? text : old);
        break;
    }
    case 3: {
        static const unsigned limits[8] = {0, 1, 3, 4, 8, 16, 255, 4096};
        unsigned max = limits[arg];
        std::unique_ptr<char[]> buf(new char[max + 1]);
        s.getCString(buf.get(), max);
        break;
    }
    case 4: {
        CORBA_OctetSequence seq(arg * 4);
        s >> seq;
        break;
    }
    case 5: return record<CORBA_StringSequence>(s);
    case 6: return record<IOP::IOR>(s);
    case 7: return record<IIOP::ObjectLocator>(s);
    case 8: return record<IIOP::RequestHeader>(s);
    case 9: return record<IIOP::ReplyHeader>(s);
    case 10: return record<IIOP::LocateRequestHeader>(s);
    case 11: return record<IIOP::LocateReplyHeader>(s);
    case 12: return record<IIOP::ServiceContextList>(s);
    case 13: return made<CORBA_Exception>(s);
    case 14: return made<CORBA_CreationImplDef>(s);
    case 15: {
        CORBA_Object* obj = nullptr;
        s >> obj;
        CORBA::release(obj);
        break;
    }
    case 16:
        array<short>(s, arg * 3);
        array<long>(s, arg);
        array<double>(s, arg);
        array<unsigned char>(s, arg * 5);
        array<char>(s, arg);
        break;
    case 17: return record<IIOP::ShmConnectRequestHeader>(s);
    case 18: return made<CORBA_ImplementationDef>(s);
    case 19: {
        ZEBString z(s);
        (void)z.hash();
        break;
    }
    case 20: return record<CORBA_Environment>(s);
    case 21: {
        // The same through the encapsulated form of -ORBstdtypecodes: a
        // TypeCode, then an Any. Other streams read their one form.
        struct StdForm {
            StdForm() { ZEBGlobalTable::std_typecodes = 1; }
            ~StdForm() { ZEBGlobalTable::std_typecodes = 0; }
        } form;
        CORBA_TypeCode_var tc;
        s >> tc.out();
        CORBA_Any a;
        s >> a;
        (void)hash(a);
        break;
    }
    case 22: {
        // A connection stream reads through getTypeCode and its table.
        CORBA_TypeCode_var tc;
        s >> tc.out();
        (void)hash(tc.operator->());
        break;
    }
    case 23: {
        CORBA_Any a;
        s >> a;
        (void)hash(a);
        // The held value walked back out, as an echo would send it.
        CORBA_MarshalOutBuffer out;
        out.owns_buffer(1);
        out << a;
        break;
    }
    case 24: return made<CORBA_Context>(s);  // what a request carries after its arguments
    case 25: {
        CORBA_NVList l(0);
        s >> l;
        break;
    }
    default: return record<IIOP::MessageHeader>(s);
    }
}

}  // namespace kfuzz
