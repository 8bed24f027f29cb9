// Stub and skeleton of Demo::Echo.
#include "echo.h"

#include "except.h"
#include "mstrm.h"
#include "tbiostrm.h"

namespace {

// Hashes of the operation names, as the compiler computes them.
constexpr unsigned kSayHash = 0x177;  // "say"
constexpr unsigned kPidHash = 0x176;  // "pid"
constexpr unsigned kNoteHash = 0x241;  // "note"

}  // namespace

CORBA_TypeInfo Demo::Echo::_class_info("Demo::Echo", "IDL:Demo/Echo:1.0", &Demo::Echo::_factory,
                                       &CORBA_Object::_desc(), nullptr);

Demo::Echo::Echo(const char* object_name) {
    if (!_zeb_impl()) _init(object_name, 1);
}

Demo::Echo::~Echo() {}

const CORBA_TypeInfo* Demo::Echo::_type_info() const { return &_class_info; }

void* Demo::Echo::_safe_narrow(const CORBA_TypeInfo& type) {
    if (type == _class_info) return static_cast<Echo*>(this);
    return CORBA_Object::_safe_narrow(type);
}

CORBA_Object* Demo::Echo::_factory() { return new Echo(static_cast<const char*>(nullptr)); }

Demo::Echo* Demo::Echo::_narrow(CORBA_Object* obj) {
    if (!obj) return nullptr;
    Echo* e = static_cast<Echo*>(obj->_safe_narrow(_class_info));
    if (e) e->_ref();
    return e;
}

Demo::Echo* Demo::Echo::_duplicate(Echo* obj) {
    if (obj) obj->_ref();
    return obj;
}

Demo::Echo* Demo::Echo::_bind(const char* object_name, const char* host_name,
                              const CORBA_BindOptions* options) {
    CORBA_Object* local = CORBA_Object::_implementation("Demo::Echo", object_name, host_name);
    if (local) return _narrow(local);
    Echo* stub = new Echo(object_name);
    try {
        stub->CORBA_Object::_bind("Demo::Echo", object_name, host_name, options);
    } catch (...) {
        CORBA::release(stub);
        throw;
    }
    return stub;
}

char* Demo::Echo::say(const char* s) {
    for (;;) {
        try {
            GIOPstream* strm = _create_request("say", 1, kSayHash);
            *strm << s;
            strm = _invoke();
            char* result = nullptr;
            *strm >> result;
            strm->flushRead();
            return result;
        } catch (const CORBA_TRANSIENT&) {
            // The next round binds again.
        }
    }
}

CORBA::Long Demo::Echo::pid() {
    for (;;) {
        try {
            GIOPstream* strm = _create_request("pid", 1, kPidHash);
            strm = _invoke();
            CORBA::Long result = 0;
            *strm >> result;
            strm->flushRead();
            return result;
        } catch (const CORBA_TRANSIENT&) {
        }
    }
}

void Demo::Echo::note(const char* s) {
    for (;;) {
        try {
            GIOPstream* strm = _create_request("note", 0, kNoteHash);
            *strm << s;
            _send();
            strm->flushRead();
            return;
        } catch (const CORBA_TRANSIENT&) {
        }
    }
}

Demo::Echo_var& Demo::Echo_var::operator=(Echo* p) {
    if (p != _ptr) {
        CORBA::release(_ptr);
        _ptr = p;
    }
    return *this;
}

Demo::Echo_var& Demo::Echo_var::operator=(const Echo_var& other) {
    if (this != &other) *this = Echo::_duplicate(other._ptr);
    return *this;
}

Demo::Echo* Demo::Echo_var::_retn() {
    Echo* p = _ptr;
    _ptr = nullptr;
    return p;
}

TBistream& Demo::operator>>(TBistream& strm, Echo_var& v) {
    CORBA_Object* obj = nullptr;
    strm >> obj;
    v = Echo::_narrow(obj);
    CORBA::release(obj);
    return strm;
}

TBostream& Demo::operator<<(TBostream& strm, const Echo_var& v) { return strm << v.in(); }

// ---- Skeleton.

CORBA_MethodDescription _sk_Demo::_sk_Echo::_methods[] = {
    {"say", &_sk_Demo::_sk_Echo::_say},
    {"pid", &_sk_Demo::_sk_Echo::_pid},
    {"note", &_sk_Demo::_sk_Echo::_note},
};

CORBA_TypeInfo _sk_Demo::_sk_Echo::_skel_info("Demo::Echo", 3ul, _sk_Demo::_sk_Echo::_methods);

_sk_Demo::_sk_Echo::_sk_Echo(const char* object_name) : Demo::Echo(ZEB_NO_INIT) {
    if (!_zeb_impl()) _init(object_name, 0);
}

void _sk_Demo::_sk_Echo::_say(void* obj, CORBA_MarshalStream& strm, CORBA_OctetSequence*,
                              const char*, void* reply) {
    Demo::Echo* self = static_cast<Demo::Echo*>(obj);
    CORBA_String_var s;
    strm >> s.inout();
    strm.flushRead();
    CORBA_String_var result(self->say(s));
    self->_prepare_reply(reply);
    strm << result.in();
    strm.sendMessage(0);
}

void _sk_Demo::_sk_Echo::_pid(void* obj, CORBA_MarshalStream& strm, CORBA_OctetSequence*,
                              const char*, void* reply) {
    Demo::Echo* self = static_cast<Demo::Echo*>(obj);
    strm.flushRead();
    CORBA::Long result = self->pid();
    self->_prepare_reply(reply);
    strm << result;
    strm.sendMessage(0);
}

void _sk_Demo::_sk_Echo::_note(void* obj, CORBA_MarshalStream& strm, CORBA_OctetSequence*,
                               const char*, void*) {
    Demo::Echo* self = static_cast<Demo::Echo*>(obj);
    CORBA_String_var s;
    strm >> s.inout();
    strm.flushRead();
    // Oneway: the client waits for nothing.
    self->note(s);
}
