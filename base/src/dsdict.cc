// Dictionaries: a set of associations searched by key.
#include "dsdict.h"

#include "tbiostrm.h"

TB_DEFINE_CLASS(DSDictionary, "DSDictionary", DSResource::desc());

namespace {

bool isAssoc(const DSResource& x) { return tbCastAllowed(x.classInfo(), DSAssoc::desc()); }

}  // namespace

// The set's stream constructor would add through DSSet::add, so the elements
// are read here, with this class's add in force.
DSDictionary::DSDictionary(TBistream& strm) : DSSet(strm, 0) { readElements(strm); }

DSResource* DSDictionary::add(DSResource& x) { return isAssoc(x) ? DSSet::add(x) : nullptr; }

int DSDictionary::remove(const DSResource& x) { return isAssoc(x) ? DSSet::remove(x) : 0; }

unsigned DSDictionary::occurrencesOf(const DSResource& x) const {
    unsigned n = 0;
    for (unsigned i = 0; i < capacity(); ++i) {
        const DSAssoc* a = static_cast<const DSAssoc*>(slot(i));
        if (a && a->value && a->value->isEqual(x)) ++n;
    }
    return n;
}

DSAssoc* DSDictionary::addAssoc(DSResource& key, DSResource& value) {
    DSAssoc* assoc = new DSAssoc(key, value);
    if (add(*assoc) == assoc) return assoc;
    // The key was there: the first value stays. Deleting the association
    // releases key and value, and frees them if nothing else holds them.
    unref(assoc);
    return nullptr;
}

DSAssoc* DSDictionary::assocAt(const DSResource& key) const {
    // Only associations are ever entered (see add).
    return static_cast<DSAssoc*>(findObjectWithKey(key));
}

bool DSDictionary::includesKey(const DSResource& key) const { return assocAt(key) != nullptr; }

int DSDictionary::removeKey(const DSResource& key) {
    DSAssoc* assoc = assocAt(key);
    return assoc ? removeAssoc(*assoc) : 0;
}

int DSDictionary::removeAssoc(const DSAssoc& assoc) { return DSSet::remove(assoc); }

DSResource* DSDictionary::atKey(const DSResource& key) const {
    DSAssoc* assoc = assocAt(key);
    return assoc ? assoc->value : nullptr;
}

namespace {

// Orders two possibly missing parts: missing ones first.
int compareParts(const DSResource* a, const DSResource* b) {
    if (!a || !b) return (a ? 1 : 0) - (b ? 1 : 0);
    return a->compare(*b);
}

}  // namespace

int DSDictionary::compare(const TBObject& other) const {
    const DSDictionary* o = dynamic_cast<const DSDictionary*>(&other);
    if (!o) return -1;
    if (size() != o->size()) return static_cast<int>(size()) - static_cast<int>(o->size());
    unsigned n = capacity() > o->capacity() ? capacity() : o->capacity();
    for (unsigned i = 0; i < n; ++i) {
        const DSAssoc* a = static_cast<const DSAssoc*>(slot(i));
        const DSAssoc* b = static_cast<const DSAssoc*>(o->slot(i));
        if (!a && !b) continue;
        if (!a) return -1;
        if (!b) return 1;
        if (int c = compareParts(a->key, b->key)) return c;
        if (int c = compareParts(a->value, b->value)) return c;
    }
    return 0;
}
