// The walk over a value of a TypeCode, item by item, shared by the reading,
// writing and printing of the constructed values that an Any holds as CDR.
#include "anyvalue.h"

#include <cstring>
#include <memory>

#include "any.h"
#include "giop.h"
#include "mstrm.h"
#include "sequence.h"
#include "typecode.h"
#include "zebread.h"

namespace {

// Elements of a simple array moved per step: the storage of a lying length
// grows only as its data arrive.
constexpr CORBA::ULong kChunk = 8192;
// Steps a walk may take per byte gathered, and before the first. A real
// value gathers at least one byte for each item, and a byte lies within at
// most 65 items (itself and 64 levels around it); the items still open have
// gathered nothing yet, at most 65 again. Empty members beyond that are a
// TypeCode made to loop.
constexpr unsigned long kStepsPerByte = 66;
constexpr unsigned long kFreeSteps = 128;

class Walk {
public:
    Walk(TBistream& in, TBostream& out, const CORBA_MarshalOutBuffer* block)
        : _in(in), _out(out), _block(block) {}
    void value(CORBA_TypeCode* tc);

private:
    void step() {
        if (_block && ++_steps > kStepsPerByte * _block->length() + kFreeSteps)
            throw CORBA_MARSHAL(0, CORBA::COMPLETED_NO);
    }
    template <class T>
    void one() {
        T v;
        _in >> v;
        _out << v;
    }
    template <class T>
    void many(CORBA::ULong n);
    void members(CORBA_TypeCode* tc);
    void unionValue(CORBA_TypeCode* tc);
    void elements(CORBA_TypeCode* element, CORBA::ULong n);

    TBistream& _in;
    TBostream& _out;
    const CORBA_MarshalOutBuffer* _block;
    unsigned long _steps = 0;
};

template <class T>
void Walk::many(CORBA::ULong n) {
    // A held block in the host's order gives its elements straight to the
    // writer, without a copy between.
    if (_in.isKindOf(CORBA_MarshalInBuffer::_class_name)) {
        auto& block = static_cast<CORBA_MarshalInBuffer&>(_in);
        if (const char* p = block.inPlace(sizeof(T), n)) {
            _out.put(reinterpret_cast<const T*>(p), n);
            return;
        }
    }
    std::unique_ptr<T[]> buf(new T[n < kChunk ? (n ? n : 1) : kChunk]);
    ZEBReadGuard guard(_in);
    while (n > 0) {
        const CORBA::ULong k = n < kChunk ? n : kChunk;
        _in.get(buf.get(), k);
        guard.check();
        _out.put(buf.get(), k);
        n -= k;
    }
}

void Walk::members(CORBA_TypeCode* tc) {
    const CORBA::ULong n = tc->member_count();
    for (CORBA::ULong i = 0; i < n; ++i) {
        CORBA_TypeCode_var m = tc->member_type(i);
        value(m);
    }
}

void Walk::unionValue(CORBA_TypeCode* tc) {
    CORBA_TypeCode_var dt = tc->discriminator_type();
    CORBA_TypeCode_var d = ZEBunaliased(dt);
    const CORBA::TCKind kind = d->kind();
    // The discriminator in its held form, for the labels to be matched.
    unsigned char disc[sizeof(CORBA::Double)];  // room for any simple kind
    size_t discSize = 0;
    if (kind == CORBA::tk_float || kind == CORBA::tk_double ||
        !ZEBwithSimple(kind, [&](auto k) {
            typename decltype(k)::Wire w;
            _in >> w;
            _out << w;
            const auto v = static_cast<typename decltype(k)::Held>(w);
            std::memcpy(disc, &v, sizeof v);
            discSize = sizeof v;
        }))
        throw CORBA_INTERNAL(0, CORBA::COMPLETED_NO);
    // The first label whose bytes match the discriminator's, in member
    // order; the default's label is an octet 0 and takes part too, so a
    // discriminator whose first byte is 0 may meet it first. Kept so.
    const CORBA::ULong n = tc->member_count();
    for (CORBA::ULong i = 0; i < n; ++i) {
        const CORBA_Any& label = tc->param(2 + 3 * i);
        const void* lv = label.value();
        const size_t n = label.size() > 0 ? static_cast<size_t>(label.size()) : 0;
        if (!lv || n < 1 || n > discSize) continue;
        if (std::memcmp(lv, disc, n) == 0) {
            CORBA_TypeCode_var m = tc->member_type(i);
            value(m);
            return;
        }
    }
}

void Walk::elements(CORBA_TypeCode* element, CORBA::ULong n) {
    CORBA_TypeCode_var e = ZEBunaliased(element);
    // Kinds 2 to 10 move in bulk, as arrays of their held type.
    if (e->kind() != CORBA::tk_enum &&
        ZEBwithSimple(e->kind(), [&](auto k) { many<typename decltype(k)::Held>(n); }))
        return;
    ZEBReadGuard guard(_in);
    for (CORBA::ULong i = 0; i < n; ++i) {
        value(e);
        guard.check();
    }
}

void Walk::value(CORBA_TypeCode* tc) {
    step();
    CORBA_TypeCode_var t = ZEBunaliased(tc);
    const CORBA::TCKind kind = t->kind();
    if (kind >= CORBA::tk_struct && kind != CORBA::tk_string) {
        ZEBNestGuard nest;
        switch (kind) {
        case CORBA::tk_except: {
            CORBA_String_var id;
            _in >> id.out();
            ZEBcheckStream(_in);
            _out << id.in();
            members(t);
            break;
        }
        case CORBA::tk_struct:
            members(t);
            break;
        case CORBA::tk_union:
            unionValue(t);
            break;
        case CORBA::tk_sequence: {
            unsigned long n = 0;
            _in >> n;
            ZEBcheckStream(_in);
            _out << n;
            CORBA_TypeCode_var e = t->content_type();
            elements(e, ZEBcheckCount(n));
            break;
        }
        case CORBA::tk_array: {
            CORBA_TypeCode_var e = t->content_type();
            elements(e, t->length());
            break;
        }
        default:
            break;
        }
        return;
    }
    if (ZEBwithSimple(kind, [&](auto k) { one<typename decltype(k)::Wire>(); })) return;
    switch (kind) {
    case CORBA::tk_string: {
        CORBA_String_var s;
        _in >> s.out();
        ZEBcheckStream(_in);
        _out << s.in();
        return;
    }
    case CORBA::tk_any: {
        CORBA_Any a;
        _in >> a;
        _out << a;
        return;
    }
    case CORBA::tk_TypeCode: {
        CORBA_TypeCode_var x;
        _in >> x.out();
        _out << x.operator->();
        return;
    }
    case CORBA::tk_Principal: {
        CORBA_OctetSequence p;
        _in >> p;
        _out << p;
        return;
    }
    case CORBA::tk_objref: {
        // A reference inside a block is its IOR; copied as such, it makes no stub.
        IOP::IOR ior;
        _in >> ior;
        _out << ior;
        return;
    }
    default:
        return;  // tk_null, tk_void and kinds beyond the table carry nothing
    }
}

}  // namespace

CORBA_TypeCode* ZEBunaliased(CORBA_TypeCode* tc) {
    CORBA_TypeCode* t = CORBA_TypeCode::_duplicate(tc);
    while (t && t->kind() == CORBA::tk_alias) {
        CORBA_TypeCode* next = t->content_type();
        CORBA::release(t);
        t = next;
    }
    return t;
}

void ZEBcopyValue(TBistream& in, TBostream& out, CORBA_TypeCode* tc,
                  const CORBA_MarshalOutBuffer* block) {
    Walk(in, out, block).value(tc);
}
