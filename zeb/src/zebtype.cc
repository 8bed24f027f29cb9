// Type records of interfaces: building and sharing the body, the hashed
// method tables and the search through the bases, and the two sets of
// records. Everything here may run during static construction or destruction.
#include "zebtype.h"

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unordered_set>
#include <vector>

namespace {

// Start of a probe: the top `bits` bits of the hash times 2^32 / golden ratio.
inline unsigned long probeStart(unsigned hash, unsigned long bits, unsigned long mask) {
    uint32_t h = static_cast<uint32_t>(hash) * 0x9e3779b9u;
    return (h >> ((0u - static_cast<unsigned>(bits)) & 31u)) & mask;
}

bool sameName(const char* a, const char* b) {
    if (!a || !b) return a == b;
    return std::strcmp(a, b) == 0;
}

// Looked at once, by the first record built; the value does not matter.
bool debugStatic() {
    static const bool debug = std::getenv("DEBUG_STATIC") != nullptr;
    return debug;
}

// Records whose constructor has run, kept only for the trace: a base named by
// a record may be a static that is not built yet, and its name must not be
// read then.
std::unordered_set<const CORBA_TypeInfo*>& builtRecords() {
    static auto* built = new std::unordered_set<const CORBA_TypeInfo*>;  // outlives every record
    return *built;
}

void traceBases(const std::vector<const CORBA_TypeInfo*>& bases) {
    std::printf("The class has the following base:\n");
    for (const CORBA_TypeInfo* b : bases) {
        const char* name = builtRecords().count(b) ? b->interface_name() : nullptr;
        if (name)
            std::printf("'%s'\n", name);
        else
            std::printf("(null)\n");
    }
    std::printf("\n");
}

// Takes the record out of `set` if the slot of `key` holds this very record.
// The other record of the same interface may hold it instead, and stays.
void leave(_ZEBCORBATypeSet& set, const char* key, const CORBA_TypeInfo* self) {
    if (key && set.find(key) == self) set.remove(key);
}

}  // namespace

unsigned _string_hash(const char* s) {
    if (!s) return 0;
    uint32_t h = 0;
    for (const unsigned char* p = reinterpret_cast<const unsigned char*>(s); *p; ++p)
        h = (h << 1) ^ *p;
    return h & 0x7fffffffu;
}

void _ZEBCORBATypeInfoCapacity(unsigned long n, unsigned long& bits, unsigned long& mask) {
    unsigned long significant = 0;
    for (unsigned long v = n; v; v >>= 1) ++significant;
    bool powerOfTwo = (n & (n - 1)) == 0;  // also true for 0, whose capacity is 1
    bits = significant + (powerOfTwo ? 0 : 1);
    mask = (1ul << bits) - 1;
}

// ---------------------------------------------------------------- ZEBTypeInfo

ZEBTypeInfo::ZEBTypeInfo(const char* name)
    : _table(nullptr), _bits(0), _mask(0), _name(name), _repository_id(nullptr),
      _factory(nullptr), _base_count(0), _bases(nullptr), _owner(nullptr), _method_count(0),
      _methods(nullptr), _references(1), _dynamic(0) {}

ZEBTypeInfo::~ZEBTypeInfo() {
    delete[] _bases;
    delete[] _table;
}

const CORBA_TypeInfo* ZEBTypeInfo::base(unsigned long i) const {
    return i < _base_count ? _bases[i] : nullptr;
}

void ZEBTypeInfo::_create_hash_table() {
    delete[] _table;
    _ZEBCORBATypeInfoCapacity(_method_count, _bits, _mask);
    _table = new CORBA_MethodDescription*[_mask + 1]();
    for (unsigned long r = 0; r < _method_count; ++r) {
        CORBA_MethodDescription* row = &_methods[r];
        // A row without a name could never be asked for; leaving it out
        // keeps the probe from comparing against null.
        if (!row->name) continue;
        unsigned long i = probeStart(_string_hash(row->name), _bits, _mask);
        while (_table[i]) {
            // Two rows of one operation: the generated table is wrong.
            if (std::strcmp(_table[i]->name, row->name) == 0) std::abort();
            i = (i - 1) & _mask;
        }
        _table[i] = row;
    }
}

ZEBMethod ZEBTypeInfo::skeleton(const char* op, unsigned int hash) const {
    if (!_table || !op) return nullptr;
    if (_dynamic) {
        // Binding stays with the connection; a dynamic servant sees the rest.
        if (std::strcmp(op, "__bind") == 0 || std::strcmp(op, "__unbind") == 0) return nullptr;
        op = "__dynamic";
        hash = 0;
    }
    if (hash == 0) hash = _string_hash(op);
    unsigned long i = probeStart(hash, _bits, _mask);
    while (CORBA_MethodDescription* row = _table[i]) {
        if (std::strcmp(row->name, op) == 0) return row->method;
        i = (i - 1) & _mask;
    }
    return nullptr;
}

ZEBMethod ZEBTypeInfo::skeleton(const char* op, const CORBA_TypeInfo*& owner,
                                unsigned int hash) const {
    owner = nullptr;
    if (hash == 0) hash = _string_hash(op);
    if (ZEBMethod m = skeleton(op, hash)) {
        owner = _owner;
        return m;
    }
    for (unsigned long i = 0; i < _base_count; ++i) {
        // A base's body is null only before its static is built.
        const ZEBTypeInfo* body = _bases[i]->impl();
        if (!body) continue;
        if (ZEBMethod m = body->skeleton(op, owner, hash)) return m;
    }
    owner = nullptr;
    return nullptr;
}

bool ZEBTypeInfo::is_a(const char* repository_id) const {
    if (!repository_id) return false;
    if (_repository_id && std::strcmp(_repository_id, repository_id) == 0) return true;
    for (unsigned long i = 0; i < _base_count; ++i) {
        const ZEBTypeInfo* body = _bases[i]->impl();
        if (body && body->is_a(repository_id)) return true;
    }
    return false;
}

// ------------------------------------------------------------- CORBA_TypeInfo

CORBA_TypeInfo::CORBA_TypeInfo(const char* name, const char* repository_id, ZEBFactory factory,
                               ...)
    : _impl(nullptr) {
    const bool debug = debugStatic();
    if (debug) {
        if (name)
            std::printf("Static initializating class: %s\n", name);  // so spelled
        else
            std::printf("Static initializing class: (null)\n");
    }

    std::vector<const CORBA_TypeInfo*> bases;
    va_list ap;
    va_start(ap, factory);
    while (const CORBA_TypeInfo* b = va_arg(ap, const CORBA_TypeInfo*)) bases.push_back(b);
    va_end(ap);
    if (debug) traceBases(bases);

    _ZEBCORBATypeSet& names = _ZEBCORBATypeSet::byName();
    _ZEBCORBATypeSet& ids = _ZEBCORBATypeSet::byRepositoryId();

    const CORBA_TypeInfo* existing = name ? names.find(name) : nullptr;
    if (existing && existing->_impl) {
        _impl = existing->_impl;
        ++_impl->_references;
        names.replace(name, this);
    } else {
        _impl = new ZEBTypeInfo(name);
        if (name) names.add(name, this);
    }
    _impl->_owner = this;
    _impl->_repository_id = repository_id;
    _impl->_factory = factory;
    if (repository_id) ids.add(repository_id, this);

    // A second stub-side record of one name replaces the first one's bases.
    delete[] _impl->_bases;
    _impl->_bases = nullptr;
    _impl->_base_count = bases.size();
    if (!bases.empty()) {
        _impl->_bases = new const CORBA_TypeInfo*[bases.size()];
        for (size_t i = 0; i < bases.size(); ++i) _impl->_bases[i] = bases[i];
    }
    if (debug) builtRecords().insert(this);
}

CORBA_TypeInfo::CORBA_TypeInfo(const char* name, unsigned long count,
                               CORBA_MethodDescription* methods)
    : _impl(nullptr) {
    _ZEBCORBATypeSet& names = _ZEBCORBATypeSet::byName();
    const CORBA_TypeInfo* existing = name ? names.find(name) : nullptr;
    if (existing && existing->_impl) {
        _impl = existing->_impl;
        ++_impl->_references;
    } else {
        _impl = new ZEBTypeInfo(name);
        if (name) names.add(name, this);
    }
    // No rows means an empty table, never an index past the end of `methods`.
    _impl->_method_count = methods ? count : 0;
    _impl->_methods = methods;
    _impl->_create_hash_table();
    if (debugStatic()) builtRecords().insert(this);
}

CORBA_TypeInfo::~CORBA_TypeInfo() {
    if (debugStatic()) builtRecords().erase(this);
    ZEBTypeInfo* body = _impl;
    if (!body) return;
    leave(_ZEBCORBATypeSet::byRepositoryId(), body->_repository_id, this);
    leave(_ZEBCORBATypeSet::byName(), body->_name, this);
    // The other record of the interface may live on; it must not reach this one.
    if (body->_owner == this) body->_owner = nullptr;
    _impl = nullptr;
    if (--body->_references < 1) delete body;
}

bool CORBA_TypeInfo::operator==(const CORBA_TypeInfo& other) const {
    return this == &other || (_impl && _impl == other._impl);
}

const char* CORBA_TypeInfo::interface_name() const {
    return _impl ? _impl->_name : nullptr;
}

const char* CORBA_TypeInfo::repository_id() const {
    return _impl ? _impl->_repository_id : nullptr;
}

ZEBFactory CORBA_TypeInfo::factory() const {
    return _impl ? _impl->_factory : nullptr;
}

bool CORBA_TypeInfo::has_base(const CORBA_TypeInfo& t, unsigned char direct) const {
    if (!_impl || _impl->_base_count == 0) return false;
    // Only the first base counts as direct: callers rely on exactly that.
    if (direct) return *_impl->_bases[0] == t;
    for (unsigned long i = 0; i < _impl->_base_count; ++i) {
        const CORBA_TypeInfo* b = _impl->_bases[i];
        if (*b == t || b->has_base(t, 0)) return true;
    }
    return false;
}

const CORBA_TypeInfo* CORBA_TypeInfo::type_info(const char* name) {
    if (!name) return nullptr;
    if (const CORBA_TypeInfo* t = _ZEBCORBATypeSet::byName().find(name)) return t;
    return _ZEBCORBATypeSet::byRepositoryId().find(name);
}

// ----------------------------------------------------------- _ZEBCORBATypeSet

_ZEBCORBATypeSet::_ZEBCORBATypeSet(unsigned long capacity, bool by_repository_id)
    : _count(0), _bits(0), _mask(0), _table(nullptr), _capacity(0),
      _by_repository_id(by_repository_id) {
    // Below 2 the table would double only when already full, and a full
    // table has no empty slot to end a search.
    _capacity = capacity < 2 ? 2 : capacity;
    _ZEBCORBATypeInfoCapacity(_capacity, _bits, _mask);
    _table = new const CORBA_TypeInfo*[_mask + 1]();
}

_ZEBCORBATypeSet::~_ZEBCORBATypeSet() {
    delete[] _table;
}

_ZEBCORBATypeSet& _ZEBCORBATypeSet::byName() {
    static auto* set = new _ZEBCORBATypeSet(32, false);  // never destroyed, see the header
    return *set;
}

_ZEBCORBATypeSet& _ZEBCORBATypeSet::byRepositoryId() {
    static auto* set = new _ZEBCORBATypeSet(32, true);  // never destroyed, see the header
    return *set;
}

const char* _ZEBCORBATypeSet::keyOf(const CORBA_TypeInfo* type) const {
    return _by_repository_id ? type->repository_id() : type->interface_name();
}

unsigned long _ZEBCORBATypeSet::home(const char* name) const {
    return probeStart(_string_hash(name), _bits, _mask);
}

unsigned long _ZEBCORBATypeSet::findIndexOf(const char* name) const {
    unsigned long i = home(name);
    while (_table[i] && !sameName(keyOf(_table[i]), name)) i = (i - 1) & _mask;
    return i;
}

const CORBA_TypeInfo* _ZEBCORBATypeSet::find(const char* name) const {
    return _table[findIndexOf(name)];
}

void _ZEBCORBATypeSet::place(const CORBA_TypeInfo* type) {
    unsigned long i = home(keyOf(type));
    while (_table[i]) i = (i - 1) & _mask;
    _table[i] = type;
    ++_count;
}

bool _ZEBCORBATypeSet::add(const char* name, const CORBA_TypeInfo* type) {
    unsigned long i = findIndexOf(name);
    if (_table[i]) return false;
    _table[i] = type;
    if (++_count >= _capacity - 1) reSize(_capacity * 2);
    return true;
}

void _ZEBCORBATypeSet::reSize(unsigned long n) {
    if (n <= _count) return;
    const CORBA_TypeInfo** old = _table;
    unsigned long oldSlots = _mask + 1;
    _capacity = n < 2 ? 2 : n;
    _ZEBCORBATypeInfoCapacity(_capacity, _bits, _mask);
    _table = new const CORBA_TypeInfo*[_mask + 1]();
    _count = 0;
    for (unsigned long i = 0; i < oldSlots; ++i)
        if (old[i]) place(old[i]);
    delete[] old;
}

bool _ZEBCORBATypeSet::replace(const char* name, const CORBA_TypeInfo* type) {
    unsigned long i = findIndexOf(name);
    if (!_table[i]) return false;
    _table[i] = type;
    return true;
}

bool _ZEBCORBATypeSet::remove(const char* name) {
    unsigned long j = findIndexOf(name);
    if (!_table[j]) return false;
    _table[j] = nullptr;
    // Walk the rest of the chain below the hole. A record whose home lies
    // cyclically in [i, j) never probed through j and stays; any other one
    // would be cut off from its home by the hole, so it moves into it.
    for (unsigned long i = (j - 1) & _mask;; i = (i - 1) & _mask) {
        const CORBA_TypeInfo* t = _table[i];
        if (!t) break;
        unsigned long h = home(keyOf(t));
        bool stays = (i <= h && h < j) || (h < j && j < i) || (j < i && i <= h);
        if (stays) continue;
        _table[j] = t;
        _table[i] = nullptr;
        j = i;
    }
    --_count;
    return true;
}
