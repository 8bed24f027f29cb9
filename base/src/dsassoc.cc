// Associations, list links and pointer wrappers.
#include "dsassoc.h"

#include <cstdint>
#include <cstdio>

#include "tbiostrm.h"

TB_DEFINE_CLASS(DSAssoc, "DSAssoc", DSResource::desc());
TB_DEFINE_CLASS(DSLink, "DSLink", DSResource::desc());
TB_DEFINE_CLASS(DSWrapper, "DSWrapper", DSResource::desc());

// ------------------------------------------------------------------ DSAssoc

DSAssoc::DSAssoc(DSResource& k, DSResource& v) : key(&k), value(&v) {
    ref(key);
    ref(value);
}

DSAssoc::DSAssoc(TBistream& strm) : DSResource(strm), key(nullptr), value(nullptr) {
    key = DSreadResource(strm);
    ref(key);
    value = DSreadResource(strm);
    ref(value);
}

DSAssoc::~DSAssoc() {
    // Drop the value first: the key may be what keeps a shared value's
    // owner alive, never the other way round.
    unref(value);
    unref(key);
}

unsigned DSAssoc::hash() const { return key ? key->hash() : 0; }

// Against another association the keys meet; against anything else, the key
// meets that object.
static const TBObject& keyOf(const TBObject& other) {
    // Lookups pass bare keys far more often than associations: test the
    // descriptor before paying for a dynamic_cast.
    const TBTypeInfo* info = other.classInfo();
    if (info != DSAssoc::desc() && !(info && info->hasBase(*DSAssoc::desc()))) return other;
    const DSAssoc* a = dynamic_cast<const DSAssoc*>(&other);
    return a && a->key ? *a->key : other;
}

int DSAssoc::compare(const TBObject& other) const {
    return key ? key->compare(keyOf(other)) : -1;
}

bool DSAssoc::isEqual(const TBObject& other) const {
    return key && key->isEqual(keyOf(other));
}

void DSAssoc::write(TBostream& strm) const {
    strm << static_cast<const TBTransObject*>(key) << static_cast<const TBTransObject*>(value);
}

void DSAssoc::prettyPrint(TBostream& strm) const {
    strm << "\nClassName: DSAssoc\n" << "Key: ";
    if (key) key->prettyPrint(strm);
    strm << "Value: ";
    if (value) value->prettyPrint(strm);
}

// ------------------------------------------------------------------- DSLink

DSLink::DSLink(DSResource& v, DSLink* n) : next(n), value(&v) { ref(value); }

DSLink::DSLink(TBistream& strm) : DSResource(strm), next(nullptr), value(nullptr) {
    value = DSreadResource(strm);
    ref(value);
}

DSLink::~DSLink() { unref(value); }

unsigned DSLink::hash() const { return value ? value->hash() : 0; }

int DSLink::compare(const TBObject& other) const {
    if (!value) return -1;
    const DSLink* l = dynamic_cast<const DSLink*>(&other);
    if (l) return l->value ? value->compare(*l->value) : -1;
    return value->compare(other);
}

void DSLink::write(TBostream& strm) const { strm << static_cast<const TBTransObject*>(value); }

void DSLink::prettyPrint(TBostream& strm) const {
    if (value) value->prettyPrint(strm);
}

// ---------------------------------------------------------------- DSWrapper

// The address travels as 4 bytes (through the stream's unsigned long, which
// every stream carries as 32 bits). It is meaningful only inside the process
// that wrote it, and on a 64-bit process not even there: only the low half
// survives. A wrapper read back therefore carries a number fit for identity
// and hashing, never a pointer to follow.
DSWrapper::DSWrapper(TBistream& strm) : DSResource(strm), value(nullptr) {
    unsigned long bits = 0;
    strm >> bits;
    value = reinterpret_cast<void*>(static_cast<uintptr_t>(static_cast<uint32_t>(bits)));
}

void DSWrapper::write(TBostream& strm) const {
    strm << static_cast<unsigned long>(static_cast<uint32_t>(reinterpret_cast<uintptr_t>(value)));
}

unsigned DSWrapper::hash() const {
    return static_cast<unsigned>(reinterpret_cast<uintptr_t>(value));
}

int DSWrapper::compare(const TBObject& other) const {
    const DSWrapper* w = dynamic_cast<const DSWrapper*>(&other);
    if (!w) return -1;
    // The difference of two addresses need not fit an int; its sign does.
    uintptr_t a = reinterpret_cast<uintptr_t>(value);
    uintptr_t b = reinterpret_cast<uintptr_t>(w->value);
    return a < b ? -1 : (a > b ? 1 : 0);
}

void DSWrapper::prettyPrint(TBostream& strm) const {
    char text[32];
    std::snprintf(text, sizeof text, "%p", value);
    strm << "OBJECT ADDRESS: " << static_cast<const char*>(text);
}
