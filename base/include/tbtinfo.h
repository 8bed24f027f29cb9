// Run-time class information of the base library: one TBTypeInfo per
// streamable class, a process-wide dictionary from class names to
// descriptors, the roots TBTransObject and TBObject, and the checked cast.
// A reader of an object stream finds the factory of a class by its name here.
#ifndef KELVANOR_TBTINFO_H
#define KELVANOR_TBTINFO_H

#include <iosfwd>

class TBistream;
class TBostream;
class TBTransObject;

using TBReadFunc = TBTransObject* (*)(TBistream&);

// Static descriptor of a class. Descriptors are static objects that register
// themselves at static initialisation; they are never removed.
class TBTypeInfo {
public:
    // The trailing arguments are the descriptors of the direct bases,
    // closed by a null pointer.
    TBTypeInfo(const char* name, TBReadFunc read, ...);
    virtual ~TBTypeInfo();

    const char* name() const { return _name; }
    TBReadFunc readFunction() const { return _read; }
    short baseCount() const { return _baseCount; }
    const TBTypeInfo* base(int i) const { return _bases[i]; }

    // Depth-first over the declared bases; a class is not its own base.
    int hasBase(const TBTypeInfo& base) const;

    static const TBTypeInfo* typeInfo(const char* name);  // null if unknown
    static TBReadFunc readFunc(const char* name);         // null if unknown

private:
    TBTypeInfo(const TBTypeInfo&) = delete;
    TBTypeInfo& operator=(const TBTypeInfo&) = delete;

    const char* _name;
    TBReadFunc _read;
    short _baseCount;
    const TBTypeInfo** _bases;  // heap array of _baseCount entries, or null
};

// Name -> descriptor. One instance, made on first use; the first descriptor
// of a name wins and later ones are ignored silently.
class TBTypeDict {
public:
    static TBTypeDict& instance();
    void add(const char* name, const TBTypeInfo* info);
    void remove(const char* name);  // names stay for the life of the process
    const TBTypeInfo* find(const char* name) const;
    unsigned count() const { return _count; }

    // 0 for an empty string; else v = (v * 2) ^ c per character, low 31 bits.
    static unsigned strHash(const char* s);

private:
    explicit TBTypeDict(unsigned capacity);
    struct Entry {
        char* name;
        const TBTypeInfo* info;
    };
    unsigned index(const char* name) const;
    void grow();

    unsigned _count;
    unsigned _bits;
    unsigned _mask;
    Entry** _slots;  // _mask + 1 slots; null means empty
    unsigned _capacity;
};

// Root of everything that goes on an object stream.
class TBTransObject {
public:
    virtual ~TBTransObject();
    virtual void write(TBostream& strm) const = 0;
    virtual const TBTypeInfo* classInfo() const = 0;
    // Prints for people on cout, writes the stream form on any other ostream.
    virtual void printOn(std::ostream& os) const;
    virtual void prettyPrint(TBostream& strm) const;  // default: write()
    virtual void readFromStream(std::istream& is);    // default: nothing
};

std::ostream& operator<<(std::ostream& os, const TBTransObject& obj);
std::istream& operator>>(std::istream& is, TBTransObject& obj);

// Adds ordering and identity.
class TBObject : public TBTransObject {
public:
    TBObject() {}
    // Every class read from a stream passes the stream up to here: this is
    // where the object takes its number on the reader, before its members
    // are read.
    explicit TBObject(TBistream& strm);

    virtual unsigned hash() const = 0;
    virtual int compare(const TBObject& other) const = 0;
    virtual bool isEqual(const TBObject& other) const;
    virtual bool isSame(const TBObject& other) const;
    bool operator==(const TBObject& other) const { return isEqual(other); }
    bool operator!=(const TBObject& other) const { return !isEqual(other); }

    static const TBTypeInfo* desc();
    static TBTypeInfo _typeInfo;
};

// A call at the start of main links in every class that the base library
// registers, so that a stream may name any of them; they do nothing else.
void TBinit();
void TBTinit();
// The same for the agent client's classes: addresses, names, providers,
// the login records and the messages.
void DSinit();

// Checked downcast support; see TB_CAST.
[[noreturn]] void tbCastFailed(const TBTypeInfo* actual, const TBTypeInfo* target,
                               const char* file, int line);
bool tbCastAllowed(const TBTypeInfo* actual, const TBTypeInfo* target);

template <class T, class P>
inline T* tbCheckedCast(P* p, const char* file, int line) {
    if (!p) return nullptr;
    const TBTypeInfo* actual = p->classInfo();
    if (!tbCastAllowed(actual, T::desc())) tbCastFailed(actual, T::desc(), file, line);
    return static_cast<T*>(p);
}

// Checked cast of a pointer p to a TBObject descendant to T*: null stays
// null, a wrong class prints where the cast was written and aborts.
#define TB_CAST(T, p) (::tbCheckedCast<T>((p), __FILE__, __LINE__))

// Inside a class declaration: the descriptor and its accessors.
#define TB_DECLARE_CLASS(Class)                                   \
public:                                                           \
    static const TBTypeInfo* desc() { return &_typeInfo; }        \
    const TBTypeInfo* classInfo() const override { return &_typeInfo; } \
    static TBTransObject* readFrom(TBistream& strm);              \
    static TBTypeInfo _typeInfo

// In the class's source file. The trailing arguments name the declared bases'
// descriptors (Base::desc()), without the closing null.
#define TB_DEFINE_CLASS(Class, Name, ...)                                        \
    TBTransObject* Class::readFrom(TBistream& strm) { return new Class(strm); } \
    TBTypeInfo Class::_typeInfo(Name, &Class::readFrom, ##__VA_ARGS__, nullptr)

// For a class that is never read from a stream (no factory).
#define TB_DEFINE_ABSTRACT_CLASS(Class, Name, ...)                          \
    TBTransObject* Class::readFrom(TBistream&) { return nullptr; }           \
    TBTypeInfo Class::_typeInfo(Name, nullptr, ##__VA_ARGS__, nullptr)

#endif
