// Contexts: named trees of name and value pairs that a dynamic request can
// carry after its arguments. On the wire a context is a count and pairs of
// strings, whatever Any the values came from.
#ifndef KELVANOR_CONTEXT_H
#define KELVANOR_CONTEXT_H

#include <kelvanor/corba.h>
#include <kelvanor/nvlist.h>

class CORBA_Any;
class TBistream;
class TBostream;

// Reference counted: a new context has one reference. A child holds one
// reference to its parent; the parent lists its children without holding
// them, and a child that goes takes itself out of that list.
class CORBA_Context {
public:
    // A null name is the empty text.
    explicit CORBA_Context(const char* name = nullptr);
    CORBA_Context(const CORBA_Context&) = delete;
    CORBA_Context& operator=(const CORBA_Context&) = delete;
    ~CORBA_Context();

    const char* context_name() const { return _name; }
    CORBA_Context* parent() const { return _parent; }
    CORBA::ULong child_count() const { return _child_count; }
    // The values themselves, not counted for the caller.
    CORBA_NVList& values() { return _values; }

    // A new child of that name in child, for the caller to release. A null
    // name is CORBA_BAD_PARAM.
    void create_child(const char* name, CORBA_Context*& child);
    // Adds a copy of value under name, beside any value of that name
    // already there. A null name is CORBA_BAD_PARAM.
    void set_one_value(const char* name, const CORBA_Any& value);
    // Adds a copy of each item of list. A null list is CORBA_BAD_PARAM.
    void set_values(CORBA_NVList* list);
    // Removes every value whose name starts with the pattern, or with what
    // comes before its first "*". A null pattern is CORBA_BAD_PARAM.
    void delete_values(const char* pattern);
    // A new list (the caller releases it) of the values that match pattern
    // as in delete_values, taken from the context the walk ends at: this one
    // with CTX_RESTRICT_SCOPE or without a parent, else the walk goes on to
    // the parent and the lists made on the way are dropped. A context adds
    // its matches only if start_scope (null: "") is its own name.
    void get_values(const char* start_scope, CORBA::Flags flags, const char* pattern,
                    CORBA_NVList*& list);

    // Takes child out of the list of children, closing the gap.
    void _remove_child(CORBA_Context* child);
    // The matches of each pattern (the last argument a null) as one context
    // in the stream form. A non-string value is CORBA_BAD_CONTEXT.
    void _write(TBostream& strm, const char* pattern, ...);

    static CORBA_Context* _duplicate(CORBA_Context* ctx);  // null stays null
    void _ref() { ++_refcount; }
    CORBA::Long _deref() { return --_refcount; }

private:
    char* _name;                // from CORBA::strdup; never null
    CORBA_Context* _parent;     // counted, or null
    CORBA_Context** _children;  // _child_capacity slots, [0, _child_count) used
    CORBA::ULong _child_count;
    CORBA::ULong _child_capacity;
    CORBA_NVList _values;
    CORBA::Long _refcount;
};

namespace CORBA {
void release(CORBA_Context* ctx);  // one reference less; null is ignored
inline Boolean is_nil(const CORBA_Context* ctx) { return ctx == nullptr; }
}  // namespace CORBA

// The count of values as an unsigned long, then each name and value as
// strings. A null context is CORBA_BAD_PARAM; a value that is not a string
// is CORBA_BAD_CONTEXT, found before anything is written.
TBostream& operator<<(TBostream& strm, CORBA_Context* ctx);
// A new unnamed context of the pairs read, each value a string Any; the
// caller releases it. Short data is CORBA_MARSHAL, and nothing is kept.
TBistream& operator>>(TBistream& strm, CORBA_Context*& ctx);

#endif
