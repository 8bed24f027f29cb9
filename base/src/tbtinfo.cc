// Class descriptors and their dictionary, the default behaviour of the
// stream roots, and the checked cast's failure report.
#include "tbtinfo.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <unordered_set>
#include <vector>

#include "tbiostrm.h"
#include "tbiotbl.h"

// ---------------------------------------------------------------- TBTypeInfo

// Descriptors are built by static constructors, in an order the linker
// chooses, so a base's descriptor may not be constructed yet when a derived
// one names it. Its name counts as null then; the set of descriptors whose
// constructor has run tells so without touching the unbuilt object.
static std::unordered_set<const TBTypeInfo*>& builtDescriptors() {
    static auto* built = new std::unordered_set<const TBTypeInfo*>;  // outlives every descriptor
    return *built;
}

TBTypeInfo::TBTypeInfo(const char* name, TBReadFunc read, ...)
    : _name(nullptr), _read(nullptr), _baseCount(0), _bases(nullptr) {
    // Looked at once, by the first descriptor; the value does not matter.
    static const bool debug = std::getenv("DEBUG_STATIC") != nullptr;
    if (debug) {
        if (name)
            std::printf("Static initializating class: %s\n", name);
        else
            std::printf("Static initializing class: (null)\n");
    }

    std::vector<const TBTypeInfo*> bases;
    va_list ap;
    va_start(ap, read);
    while (const TBTypeInfo* b = va_arg(ap, const TBTypeInfo*)) bases.push_back(b);
    va_end(ap);

    if (!bases.empty()) {
        _baseCount = static_cast<short>(bases.size());
        _bases = new const TBTypeInfo*[bases.size()];
        if (debug) std::printf("The class has the following base:\n");
        for (size_t i = 0; i < bases.size(); ++i) {
            _bases[i] = bases[i];
            if (!debug) continue;
            if (builtDescriptors().count(bases[i]) && bases[i]->_name)
                std::printf("'%s'\n", bases[i]->_name);
            else
                std::printf("(null)\n");
        }
        if (debug) std::printf("\n");
    } else if (debug) {
        std::printf("The class is directly derived from ");
        std::printf("TBTransObject\n\n");
    }

    _name = name;
    _read = read;
    builtDescriptors().insert(this);
    if (name) TBTypeDict::instance().add(name, this);
}

TBTypeInfo::~TBTypeInfo() {
    builtDescriptors().erase(this);
    if (_name) TBTypeDict::instance().remove(_name);
    delete[] _bases;
}

int TBTypeInfo::hasBase(const TBTypeInfo& base) const {
    for (short i = 0; i < _baseCount; ++i) {
        if (_bases[i] == &base || _bases[i]->hasBase(base)) return 1;
    }
    return 0;
}

const TBTypeInfo* TBTypeInfo::typeInfo(const char* name) {
    return name ? TBTypeDict::instance().find(name) : nullptr;
}

TBReadFunc TBTypeInfo::readFunc(const char* name) {
    const TBTypeInfo* info = typeInfo(name);
    return info ? info->readFunction() : nullptr;
}

// ---------------------------------------------------------------- TBTypeDict

TBTypeDict& TBTypeDict::instance() {
    // Never destroyed: descriptors of other units may be destroyed after this
    // one at exit, and their destructors still call remove().
    static TBTypeDict* dict = new TBTypeDict(16);
    return *dict;
}

TBTypeDict::TBTypeDict(unsigned capacity) : _count(0) {
    TBHashShape shape;
    shape.setCapacity(capacity);
    _bits = shape.bits;
    _mask = shape.mask;
    _capacity = shape.slots;
    _slots = new Entry*[_capacity]();
}

unsigned TBTypeDict::strHash(const char* s) {
    unsigned v = 0;
    for (; *s; ++s) v = (v * 2) ^ static_cast<unsigned char>(*s);
    return v & 0x7fffffffu;
}

unsigned TBTypeDict::index(const char* name) const {
    TBHashShape shape;
    shape.setSlots(_bits);
    unsigned i = shape.home(strHash(name));
    while (_slots[i] && std::strcmp(_slots[i]->name, name) != 0) i = shape.below(i);
    return i;
}

void TBTypeDict::add(const char* name, const TBTypeInfo* info) {
    unsigned i = index(name);
    if (_slots[i]) return;  // the first descriptor of a name stays
    char* copy = new char[std::strlen(name) + 1];
    std::strcpy(copy, name);
    _slots[i] = new Entry{copy, info};
    if (++_count > _capacity - 1) grow();
}

void TBTypeDict::remove(const char*) {}

const TBTypeInfo* TBTypeDict::find(const char* name) const {
    const Entry* e = _slots[index(name)];
    return e ? e->info : nullptr;
}

void TBTypeDict::grow() {
    Entry** old = _slots;
    unsigned oldCapacity = _capacity;
    ++_bits;
    _capacity = 1u << _bits;
    _mask = _capacity - 1;
    _slots = new Entry*[_capacity]();
    for (unsigned i = 0; i < oldCapacity; ++i) {
        if (old[i]) _slots[index(old[i]->name)] = old[i];
    }
    delete[] old;
}

// ------------------------------------------------------------- TBTransObject

TBTransObject::~TBTransObject() {}

void TBTransObject::printOn(std::ostream& os) const {
    TBostream strm(os);
    if (&os == &std::cout)
        prettyPrint(strm);
    else
        write(strm);
}

void TBTransObject::prettyPrint(TBostream& strm) const { write(strm); }

void TBTransObject::readFromStream(std::istream&) {}

std::ostream& operator<<(std::ostream& os, const TBTransObject& obj) {
    obj.printOn(os);
    return os;
}

std::istream& operator>>(std::istream& is, TBTransObject& obj) {
    obj.readFromStream(is);
    return is;
}

// ------------------------------------------------------------------ TBObject

TBTypeInfo TBObject::_typeInfo("TBObject", nullptr, nullptr);

const TBTypeInfo* TBObject::desc() { return &_typeInfo; }

TBObject::TBObject(TBistream& strm) { strm.addToTbl(*this); }

bool TBObject::isEqual(const TBObject& other) const {
    return classInfo() == other.classInfo() && compare(other) == 0;
}

bool TBObject::isSame(const TBObject& other) const { return this == &other; }

// ------------------------------------------------------------- checked cast

bool tbCastAllowed(const TBTypeInfo* actual, const TBTypeInfo* target) {
    if (!actual || !target) return false;
    return actual == target || actual->hasBase(*target);
}

void tbCastFailed(const TBTypeInfo* actual, const TBTypeInfo* target, const char* file,
                  int line) {
    const char* from = actual ? actual->name() : nullptr;
    const char* to = target ? target->name() : nullptr;
    if (from && to) {
        std::cout << "Invalid cast: Cannot cast '" << from << "' to '" << to << "'\n"
                  << "File: " << file << ", Line: " << line << '\n';
    } else {
        std::cout << "ClassInfo has not been initialized properly."
                  << " Make sure you have 'TBinit()' (for generic) "
                  << " or 'TBTinit()' (typed objects) at the "
                  << " begining of main to ensure proper static "
                  << " class initialization. \n";
    }
    std::cout.flush();
    std::abort();
}
