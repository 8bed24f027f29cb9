// Per-interface type records: the static CORBA_TypeInfo objects that
// generated stubs and skeletons declare, the ZEBTypeInfo body they share
// (bases, factory and the hashed method table), and the two process-wide sets
// that find a record by interface name or by repository id.
#ifndef KELVANOR_ZEBTYPE_H
#define KELVANOR_ZEBTYPE_H

class CORBA_Object;
class CORBA_MarshalStream;
class CORBA_OctetSequence;
class ZEBTypeInfo;

// A skeleton method. `servant` is already narrowed to the interface that
// declares the operation; `reply` is the connection's reply record.
typedef void (*ZEBMethod)(void* servant, CORBA_MarshalStream& stream,
                          CORBA_OctetSequence* principal, const char* operation, void* reply);
// Makes an unbound stub of one interface.
typedef CORBA_Object* (*ZEBFactory)();

// One row of a generated method table.
struct CORBA_MethodDescription {
    const char* name;
    ZEBMethod method;
};

// Hash of an operation or interface name: 0 for null or "", otherwise
// h = (h * 2) ^ byte over the bytes in 32 bits, then the top bit cleared.
unsigned _string_hash(const char* s);

// Table size for n entries: `bits` is the number of significant bits of n,
// one more when n is not a power of two, so that 1 << bits is at least twice
// n and a table is never more than half full. `mask` is (1 << bits) - 1.
void _ZEBCORBATypeInfoCapacity(unsigned long n, unsigned long& bits, unsigned long& mask);

// The static record of one interface. An interface may have two of them, one
// from the stub side (name, id, factory, bases) and one from the skeleton
// side (the method table); whichever is built first makes the body and the
// other joins it, so their order of static construction does not matter.
class CORBA_TypeInfo {
public:
    // Stub side: the trailing arguments are `const CORBA_TypeInfo*` bases,
    // ended by a null pointer. The bases may still be unconstructed statics;
    // only their addresses are kept.
    CORBA_TypeInfo(const char* name, const char* repository_id, ZEBFactory factory, ...);
    // Skeleton side: `methods` holds `count` rows and must outlive this
    // record; it is not copied.
    CORBA_TypeInfo(const char* name, unsigned long count, CORBA_MethodDescription* methods);
    // Leaves both sets; the last record of a body frees it.
    ~CORBA_TypeInfo();

    CORBA_TypeInfo(const CORBA_TypeInfo&) = delete;
    CORBA_TypeInfo& operator=(const CORBA_TypeInfo&) = delete;

    // The same object, or two records that share one body.
    bool operator==(const CORBA_TypeInfo& other) const;
    bool operator!=(const CORBA_TypeInfo& other) const { return !(*this == other); }

    const char* interface_name() const;
    const char* repository_id() const;
    // Null while only the skeleton side of the interface exists.
    ZEBFactory factory() const;

    // With `direct` set only the first base is compared; otherwise every
    // base, depth first. A record is not its own base.
    bool has_base(const CORBA_TypeInfo& t, unsigned char direct) const;

    // The record of an interface name, else of a repository id; null if
    // neither is known.
    static const CORBA_TypeInfo* type_info(const char* name);

    ZEBTypeInfo* impl() const { return _impl; }

private:
    ZEBTypeInfo* _impl;  // shared with the other record of the interface
};

// The body of an interface's records. Only CORBA_TypeInfo builds and frees it.
class ZEBTypeInfo {
public:
    ZEBTypeInfo(const ZEBTypeInfo&) = delete;
    ZEBTypeInfo& operator=(const ZEBTypeInfo&) = delete;

    // The method of `op` in this interface's own table, or null. A `hash` of
    // 0 means "not known yet": it is computed from `op`.
    ZEBMethod skeleton(const char* op, unsigned int hash) const;
    // The method of `op` here or in a base, depth first and left to right, so
    // that a derived interface hides its bases' methods. `owner` becomes the
    // stub-side record of the interface that has the method (null on a miss).
    ZEBMethod skeleton(const char* op, const CORBA_TypeInfo*& owner, unsigned int hash) const;
    // True for this interface's repository id or that of any base.
    bool is_a(const char* repository_id) const;

    const char* interface_name() const { return _name; }
    const char* repository_id() const { return _repository_id; }
    ZEBFactory factory() const { return _factory; }
    unsigned long base_count() const { return _base_count; }
    const CORBA_TypeInfo* base(unsigned long i) const;
    // The stub-side record; null while there is none.
    const CORBA_TypeInfo* owner() const { return _owner; }
    unsigned long method_count() const { return _method_count; }
    // Slots of the method table, 0 before a table is built.
    unsigned long table_size() const { return _table ? _mask + 1 : 0; }

    // When on, every operation but "__bind" and "__unbind" is looked up as
    // "__dynamic". Nothing in the broker turns it on by itself.
    unsigned char dynamic() const { return _dynamic; }
    void dynamic(unsigned char on) { _dynamic = on; }

private:
    friend class CORBA_TypeInfo;

    explicit ZEBTypeInfo(const char* name);
    ~ZEBTypeInfo();

    // Hashes every row into a fresh table; two rows of one name abort.
    void _create_hash_table();

    CORBA_MethodDescription** _table;  // _mask + 1 slots, or null with no method table yet
    unsigned long _bits;               // log2 of the table's slot count
    unsigned long _mask;
    const char* _name;
    const char* _repository_id;
    ZEBFactory _factory;
    unsigned long _base_count;
    const CORBA_TypeInfo** _bases;     // _base_count entries, owned
    const CORBA_TypeInfo* _owner;
    unsigned long _method_count;
    CORBA_MethodDescription* _methods; // not owned
    long _references;                  // records that share this body
    unsigned char _dynamic;
};

// Open-addressing set of type records keyed by interface name or by
// repository id. Probing starts at the multiplicative hash of the key and
// goes downwards; the table always keeps an empty slot, which ends a search.
class _ZEBCORBATypeSet {
public:
    // Room for `capacity` records before the table doubles; the table has
    // at least twice as many slots.
    _ZEBCORBATypeSet(unsigned long capacity, bool by_repository_id);
    ~_ZEBCORBATypeSet();

    _ZEBCORBATypeSet(const _ZEBCORBATypeSet&) = delete;
    _ZEBCORBATypeSet& operator=(const _ZEBCORBATypeSet&) = delete;

    // The slot that holds `name`, or the empty slot where it would go.
    unsigned long findIndexOf(const char* name) const;
    // The record of `name`, or null.
    const CORBA_TypeInfo* find(const char* name) const;
    // False if `name` is there already.
    bool add(const char* name, const CORBA_TypeInfo* type);
    // Rebuilds for `n` records; nothing unless `n` is above the count.
    void reSize(unsigned long n);
    // Stores over the record of `name`; false if there is none.
    bool replace(const char* name, const CORBA_TypeInfo* type);
    // Clears the slot of `name` and moves up the later records of its probe
    // chain, so that each stays reachable from its home slot. False if
    // `name` is not there.
    bool remove(const char* name);

    unsigned long count() const { return _count; }
    unsigned long capacity() const { return _capacity; }
    unsigned long slots() const { return _mask + 1; }
    const CORBA_TypeInfo* at(unsigned long slot) const { return _table[slot & _mask]; }

    // The two sets of the process, made on first use: static construction
    // order across files is unknown, and they are never destroyed, so records
    // may leave them at exit in any order.
    static _ZEBCORBATypeSet& byName();
    static _ZEBCORBATypeSet& byRepositoryId();

private:
    const char* keyOf(const CORBA_TypeInfo* type) const;
    unsigned long home(const char* name) const;
    // Stores into the first empty slot of the chain; no growth.
    void place(const CORBA_TypeInfo* type);

    unsigned long _count;
    unsigned long _bits;
    unsigned long _mask;
    const CORBA_TypeInfo** _table;  // _mask + 1 slots; null marks an empty one
    unsigned long _capacity;        // _count stays below _capacity - 1 after an add
    bool _by_repository_id;
};

#endif
