// Contexts: the tree of named value lists, pattern matching on names, and
// the string pairs a request carries.
#include "context.h"

#include <cstdarg>
#include <cstring>

#include "any.h"
#include "except.h"
#include "tbiostrm.h"
#include "zebglob.h"
#include "zebread.h"

namespace {

[[noreturn]] void badParam() { throw CORBA_BAD_PARAM(0, CORBA::COMPLETED_NO); }

// How many leading characters of a name a pattern compares: all of it, or
// what comes before its first "*". Either way a prefix match.
size_t patternLength(const char* pattern) {
    const char* star = std::strchr(pattern, '*');
    return star ? static_cast<size_t>(star - pattern) : std::strlen(pattern);
}

bool matches(const CORBA_NamedValue* nv, const char* pattern, size_t n) {
    const char* name = nv->name() ? nv->name() : "";
    return std::strncmp(name, pattern, n) == 0;
}

// The text of a value that may go on the wire; null if it is no string.
const char* stringValue(const CORBA_NamedValue* nv) {
    if (!nv->value() || nv->value()->kind() != CORBA::tk_string) return nullptr;
    const char* s = *static_cast<char**>(nv->value()->value());
    return s ? s : "";
}

// Count, then name and value of each item. Every value is looked at before
// the first byte goes, so that a refused context leaves nothing half
// written.
void writePairs(TBostream& strm, CORBA_NVList& list) {
    const CORBA::ULong n = list.count();
    for (CORBA::ULong i = 0; i < n; ++i) {
        CORBA_NamedValue_var nv(list.item(i));
        if (!stringValue(nv)) throw CORBA_BAD_CONTEXT(0, CORBA::COMPLETED_NO);
    }
    strm << static_cast<unsigned long>(n);
    for (CORBA::ULong i = 0; i < n; ++i) {
        CORBA_NamedValue_var nv(list.item(i));
        strm << (nv->name() ? nv->name() : "") << stringValue(nv);
    }
}

}  // namespace

CORBA_Context::CORBA_Context(const char* name)
    : _name(CORBA::strdup(name ? name : "")),
      _parent(nullptr),
      _children(nullptr),
      _child_count(0),
      _child_capacity(0),
      _values(16),
      _refcount(1) {}

CORBA_Context::~CORBA_Context() {
    // Children outliving this context lose their parent.
    for (CORBA::ULong i = 0; i < _child_count; ++i) _children[i]->_parent = nullptr;
    delete[] _children;
    if (_parent) {
        _parent->_remove_child(this);
        CORBA::release(_parent);
    }
    CORBA::string_free(_name);
}

CORBA_Context* CORBA_Context::_duplicate(CORBA_Context* ctx) {
    if (ctx) ctx->_ref();
    return ctx;
}

void CORBA::release(CORBA_Context* ctx) {
    if (ctx && ctx->_deref() <= 0) delete ctx;
}

void CORBA_Context::create_child(const char* name, CORBA_Context*& child) {
    if (!name) badParam();
    if (_child_count == _child_capacity) {
        const CORBA::ULong bigger = _child_capacity ? 2 * _child_capacity : 2;
        CORBA_Context** grown = new CORBA_Context*[bigger];
        for (CORBA::ULong i = 0; i < _child_count; ++i) grown[i] = _children[i];
        delete[] _children;
        _children = grown;
        _child_capacity = bigger;
    }
    child = new CORBA_Context(name);
    child->_parent = _duplicate(this);
    _children[_child_count++] = child;
}

void CORBA_Context::_remove_child(CORBA_Context* child) {
    for (CORBA::ULong i = 0; i < _child_count; ++i) {
        if (_children[i] != child) continue;
        for (CORBA::ULong j = i + 1; j < _child_count; ++j) _children[j - 1] = _children[j];
        --_child_count;
        return;
    }
}

void CORBA_Context::set_one_value(const char* name, const CORBA_Any& value) {
    if (!name) badParam();
    CORBA::release(_values.add_value(name, value, CORBA::IN_COPY_VALUE));
}

void CORBA_Context::set_values(CORBA_NVList* list) {
    if (!list) badParam();
    for (CORBA::ULong i = 0; i < list->count(); ++i) {
        CORBA_NamedValue_var nv(list->item(i));
        CORBA::release(_values.add_value(nv->name(), *nv->value(), 0));
    }
}

void CORBA_Context::delete_values(const char* pattern) {
    if (!pattern) badParam();
    const size_t n = patternLength(pattern);
    for (CORBA::ULong i = _values.count(); i-- > 0;) {
        CORBA_NamedValue_var nv(_values.item(i));
        if (matches(nv, pattern, n)) _values.remove(i);
    }
}

void CORBA_Context::get_values(const char* start_scope, CORBA::Flags flags, const char* pattern,
                               CORBA_NVList*& list) {
    if (!pattern) badParam();
    const char* scope = start_scope ? start_scope : "";
    const size_t n = patternLength(pattern);
    list = nullptr;
    // Each context asked makes a new list that replaces the one before:
    // the last context of the walk is what the caller gets. The scope test
    // is by exact name at every step.
    for (CORBA_Context* c = this; c; c = c->_parent) {
        CORBA::release(list);
        list = new CORBA_NVList(16);
        if (std::strcmp(scope, c->_name) == 0) {
            for (CORBA::ULong i = 0; i < c->_values.count(); ++i) {
                CORBA_NamedValue_var nv(c->_values.item(i));
                if (matches(nv, pattern, n))
                    CORBA::release(list->add_value(nv->name(), *nv->value(), 0));
            }
        }
        if (flags == CORBA::CTX_RESTRICT_SCOPE) break;
    }
}

void CORBA_Context::_write(TBostream& strm, const char* pattern, ...) {
    CORBA_NVList all(16);
    va_list ap;
    va_start(ap, pattern);
    try {
        for (const char* p = pattern; p; p = va_arg(ap, const char*)) {
            CORBA_NVList* found = nullptr;
            get_values(nullptr, 0, p, found);
            for (CORBA::ULong i = 0; i < found->count(); ++i) {
                CORBA_NamedValue_var nv(found->item(i));
                CORBA::release(all.add_value(nv->name(), *nv->value(), 0));
            }
            CORBA::release(found);
        }
    } catch (...) {
        va_end(ap);
        throw;
    }
    va_end(ap);
    writePairs(strm, all);
}

TBostream& operator<<(TBostream& strm, CORBA_Context* ctx) {
    if (!ctx) badParam();
    writePairs(strm, ctx->values());
    return strm;
}

TBistream& operator>>(TBistream& strm, CORBA_Context*& ctx) {
    ctx = nullptr;
    unsigned long count = 0;
    strm >> count;
    ZEBcheckStream(strm);
    const CORBA::ULong n = ZEBcheckCount(count);
    struct Holder {
        CORBA_Context* c = new CORBA_Context;
        ~Holder() { CORBA::release(c); }
    } made;
    // The count is the peer's word: the list grows with the pairs that
    // really arrive, and a short stream throws before it grows far.
    ZEBReadGuard guard(strm);
    for (CORBA::ULong i = 0; i < n; ++i) {
        CORBA_String_var name, value;
        strm >> name.out();
        strm >> value.out();
        guard.check();
        ZEBcheckStream(strm);
        CORBA_Any a;
        a <<= value.in();
        CORBA::release(made.c->values().add_value(name, a, 0));
    }
    ctx = made.c;
    made.c = nullptr;
    return strm;
}

// ---- The process's default context, kept in the global table.

namespace {
CORBA_Context* defaultContext = nullptr;  // one reference held, or null
}  // namespace

CORBA_Context* ZEBGlobalTable::context() { return defaultContext; }

void ZEBGlobalTable::context(CORBA_Context* ctx) {
    CORBA_Context* held = CORBA_Context::_duplicate(ctx);
    CORBA::release(defaultContext);
    defaultContext = held;
}
