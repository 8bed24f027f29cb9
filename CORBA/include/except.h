// The exception family of the broker: the abstract root, system and user
// levels, the 26 standard system exceptions, the per-class Description that
// rebuilds an exception from its repository id alone, and CORBA_Environment,
// through which an exception travels from a reply to the caller.
#ifndef KELVANOR_EXCEPT_H
#define KELVANOR_EXCEPT_H

#include <iosfwd>

#include <kelvanor/corba.h>

class TBistream;
class TBostream;

// <sys/sysmacros.h> defines a function-like macro minor(); it would break
// the accessor of the same name below.
#ifdef minor
#undef minor
#endif

class CORBA_Exception {
public:
    typedef CORBA_Exception* (*Factory)();

    // One static record per class. Constructing one enters it, under its id,
    // in a process-wide dictionary that the first Description creates; so
    // registration works during static initialisation in any unit order.
    class Description {
    public:
        Description(const char* name, const char* id, Factory factory, const Description* base);
        Description(const Description&) = delete;
        Description& operator=(const Description&) = delete;

        // True if this is target or derives from it; by address, not name.
        bool can_cast(const Description& target) const;
        // The description registered under id, or null.
        static const Description* desc(const char* id);

        const char* const name;  // scoped name, "CORBA::BAD_PARAM"
        const char* const id;    // "IDL:omg.org/CORBA/BAD_PARAM:1.0"
        const Factory factory;   // empty instance; null for abstract classes
        const Description* const base;  // parent class, null at the root
    };

    virtual ~CORBA_Exception();
    virtual const Description* _desc() const;
    // Members only; the id is written by the stream operators.
    virtual void _write(TBostream& strm) const;
    // Reads what _write wrote, into this object.
    virtual void _copy(TBistream& strm);
    // The text for people: "Exception: " and the name.
    virtual void _pretty_print(TBostream& strm) const;
    // Throws a copy of *this as its most derived class.
    virtual void _throw() const = 0;
    // A heap copy owned by the caller.
    virtual CORBA_Exception* _deep_copy() const = 0;

    static const Description _description;

protected:
    CORBA_Exception() {}
    CORBA_Exception(const CORBA_Exception&) = default;
    CORBA_Exception& operator=(const CORBA_Exception&) = default;
};

// Members of every concrete or abstract exception class; Class is the
// unqualified name of the class being declared.
#define CORBA_EXCEPTION_NARROW(Class)                                             \
public:                                                                           \
    static const CORBA_Exception::Description _description;                      \
    const CORBA_Exception::Description* _desc() const override {                 \
        return &_description;                                                     \
    }                                                                             \
    static Class* _narrow(CORBA_Exception* e) {                                   \
        return (e && e->_desc()->can_cast(_description)) ? static_cast<Class*>(e) \
                                                         : nullptr;               \
    }                                                                             \
    static const Class* _narrow(const CORBA_Exception* e) {                       \
        return (e && e->_desc()->can_cast(_description))                          \
                   ? static_cast<const Class*>(e)                                 \
                   : nullptr;                                                     \
    }

#define CORBA_EXCEPTION_MEMBERS(Class)                                       \
    CORBA_EXCEPTION_NARROW(Class)                                            \
    static CORBA_Exception* _factory() { return new Class; }                 \
    void _throw() const override { throw *this; }                            \
    CORBA_Exception* _deep_copy() const override { return new Class(*this); }

// In the unit of a concrete exception: Class may be qualified; Base names
// the parent class, CORBA_UserException for an exception of an interface.
#define CORBA_EXCEPTION_DEFINE(Class, Name, Id, Base) \
    const CORBA_Exception::Description Class::_description(Name, Id, &Class::_factory, &Base::_description)

// A user exception of an interface: derive from CORBA_UserException, put
// CORBA_EXCEPTION_MEMBERS(Class) in the body, and override _write, _copy and
// _pretty_print if it has members; CORBA_EXCEPTION_DEFINE in its unit.

class CORBA_SystemException : public CORBA_Exception {
    CORBA_EXCEPTION_NARROW(CORBA_SystemException)

public:
    CORBA::ULong minor() const { return _minor; }
    void minor(CORBA::ULong m) { _minor = m; }
    CORBA::CompletionStatus completed() const { return _completed; }
    void completed(CORBA::CompletionStatus c) { _completed = c; }

    // Both as unsigned long, minor first.
    void _write(TBostream& strm) const override;
    void _copy(TBistream& strm) override;
    void _pretty_print(TBostream& strm) const override;

    // "YES", "NO", "MAYBE", or "Invalid status" for any other value.
    static const char* completionName(CORBA::CompletionStatus c);

protected:
    CORBA_SystemException(CORBA::ULong minor = 0,
                          CORBA::CompletionStatus completed = CORBA::COMPLETED_NO)
        : _minor(minor), _completed(completed) {}

private:
    CORBA::ULong _minor;
    CORBA::CompletionStatus _completed;  // may hold values beyond MAYBE
};

class CORBA_UserException : public CORBA_Exception {
    CORBA_EXCEPTION_NARROW(CORBA_UserException)

protected:
    CORBA_UserException() {}
};

// A user exception whose class is not linked into this process. It keeps the
// repository id so the caller can still tell what was raised; its members
// were not understood and are lost. The id is a plain string holder so that
// this header needs nothing of the collections.
class _CORBA_UNLINKED_UserException : public CORBA_UserException {
    CORBA_EXCEPTION_MEMBERS(_CORBA_UNLINKED_UserException)

public:
    _CORBA_UNLINKED_UserException() {}
    explicit _CORBA_UNLINKED_UserException(const char* id) : _id(id ? id : "") {}
    const char* id() const { return _id.in() ? _id.in() : ""; }
    void _pretty_print(TBostream& strm) const override;

private:
    CORBA_String_var _id;
};

// The standard system exceptions, as an X-macro so that code and tests can
// walk them all: X(BAD_PARAM) stands for class CORBA_BAD_PARAM, name
// "CORBA::BAD_PARAM" and id "IDL:omg.org/CORBA/BAD_PARAM:1.0".
#define CORBA_SYSTEM_EXCEPTION_LIST(X)                                               \
    X(UNKNOWN) X(BAD_PARAM) X(NO_MEMORY) X(IMP_LIMIT) X(COMM_FAILURE) X(INV_OBJREF)  \
    X(NO_PERMISSION) X(INTERNAL) X(MARSHAL) X(INITIALIZE) X(NO_IMPLEMENT)            \
    X(BAD_TYPECODE) X(BAD_OPERATION) X(NO_RESOURCES) X(NO_RESPONSE) X(PERSIST_STORE) \
    X(BAD_INV_ORDER) X(TRANSIENT) X(FREE_MEM) X(INV_IDENT) X(INV_FLAG) X(INTF_REPOS) \
    X(BAD_CONTEXT) X(OBJ_ADAPTER) X(DATA_CONVERSION) X(OBJECT_NOT_EXIST)

#define KELVANOR_DECLARE_SYSTEM_EXCEPTION(N)                                        \
    class CORBA_##N : public CORBA_SystemException {                                \
        CORBA_EXCEPTION_MEMBERS(CORBA_##N)                                          \
    public:                                                                         \
        CORBA_##N(CORBA::ULong minor = 0,                                           \
                  CORBA::CompletionStatus completed = CORBA::COMPLETED_NO)          \
            : CORBA_SystemException(minor, completed) {}                            \
    };
CORBA_SYSTEM_EXCEPTION_LIST(KELVANOR_DECLARE_SYSTEM_EXCEPTION)
#undef KELVANOR_DECLARE_SYSTEM_EXCEPTION

// Holds at most one exception, owned.
class CORBA_Environment {
public:
    CORBA_Environment() : _exception(nullptr) {}
    CORBA_Environment(const CORBA_Environment& other);  // deep copy
    CORBA_Environment& operator=(const CORBA_Environment& other);
    ~CORBA_Environment();

    CORBA_Exception* exception() const { return _exception; }
    // Adopts e and deletes the exception held before.
    void exception(CORBA_Exception* e);
    void clear() { exception(nullptr); }

    // A new environment with a deep copy of what env holds; null stays null.
    static CORBA_Environment* _duplicate(const CORBA_Environment* env);
    static CORBA_Environment* _nil() { return nullptr; }

private:
    CORBA_Exception* _exception;  // null when empty
};

namespace CORBA {
// The one process-wide environment in which stubs leave a received exception.
CORBA_Environment& current_environment();
void release(CORBA_Environment* env);  // deletes; null is ignored
inline Boolean is_nil(const CORBA_Environment* env) { return env == nullptr; }
}  // namespace CORBA

// The id as a ZEBString, then _write.
TBostream& operator<<(TBostream& strm, const CORBA_Exception& e);
// A new exception of the class registered under the id read. Unknown id:
// throws CORBA_MARSHAL. Without any registered class it leaves
// CORBA_INITIALIZE in the current environment and sets e to null.
TBistream& operator>>(TBistream& strm, CORBA_Exception*& e);
// The exception of a reply, owned by the caller. Unlike operator>>, an id
// with no registered class does not fail the call: a user exception comes
// as a _CORBA_UNLINKED_UserException that keeps the id (its members are
// left unread, for the reader to skip with the rest of the message), a
// system exception (system set) as CORBA_UNKNOWN with the minor code and
// completion status sent.
CORBA_Exception* ZEBreadReplyException(TBistream& strm, bool system);
// On cout, cerr and clog _pretty_print; elsewhere _write.
std::ostream& operator<<(std::ostream& os, const CORBA_Exception& e);

// unsigned long kind (0 empty, 1 user, 2 system); then for an exception the
// id's length with its NUL, the id's bytes and the members.
TBostream& operator<<(TBostream& strm, const CORBA_Environment& env);
// An id with no registered class gives a _CORBA_UNLINKED_UserException.
TBistream& operator>>(TBistream& strm, CORBA_Environment& env);
std::ostream& operator<<(std::ostream& os, const CORBA_Environment& env);

#endif
