// The exception family: descriptions and their dictionary, the members of
// the abstract levels, the system exceptions, and the stream and printing
// forms of exceptions and environments.
#include "except.h"

#include <cstdlib>
#include <cstring>
#include <iostream>
#include <memory>
#include <string>

#include "dsassoc.h"
#include "dsdict.h"
#include "tbiostrm.h"
#include "zebread.h"
#include "zebstring.h"

namespace {

using Description = CORBA_Exception::Description;

// Id -> DSWrapper around the Description. A plain pointer, so that it is
// null before any dynamic initialisation runs: the first Description, in
// whatever unit, creates the dictionary. It lives as long as the process.
DSDictionary* descriptions = nullptr;

void enter(const Description* d) {
    if (!descriptions) descriptions = new DSDictionary(16);
    // A second description with the same id is ignored: the first wins.
    // addAssoc then deletes its new association, which frees key and value.
    descriptions->addAssoc(*new ZEBString(d->id), *new DSWrapper(const_cast<Description*>(d)));
}

const Description* lookup(const char* id) {
    ZEBString key(id);
    DSWrapper* holder = TB_CAST(DSWrapper, descriptions->atKey(key));
    return holder ? static_cast<const Description*>(holder->value) : nullptr;
}

// The id goes as a ZEBString: its count with the NUL, then the bytes.
void writeId(TBostream& strm, const char* id) {
    ZEBString key(id);
    strm << static_cast<const TBTransObject&>(key);
}

std::string readId(TBistream& strm) { return ZEBString(strm).string(); }

// Text for people goes out raw, through the character-array put, which
// every stream writes as it stands.
void putText(TBostream& strm, const std::string& text) {
    strm.put(text.data(), static_cast<unsigned>(text.size()));
}

// The id that goes on a stream: an unlinked exception keeps the one it came
// with, so that passing it on does not change what the caller sees.
const char* streamId(const CORBA_Exception& e) {
    const _CORBA_UNLINKED_UserException* u = _CORBA_UNLINKED_UserException::_narrow(&e);
    return u ? u->id() : e._desc()->id;
}

}  // namespace

// ------------------------------------------------------------ descriptions

CORBA_Exception::Description::Description(const char* name_, const char* id_, Factory factory_,
                                          const Description* base_)
    : name(name_), id(id_), factory(factory_), base(base_) {
    enter(this);
}

bool CORBA_Exception::Description::can_cast(const Description& target) const {
    for (const Description* d = this; d; d = d->base)
        if (d == &target) return true;
    return false;
}

const CORBA_Exception::Description* CORBA_Exception::Description::desc(const char* id) {
    if (!descriptions || !id) return nullptr;
    return lookup(id);
}

const CORBA_Exception::Description CORBA_Exception::_description(
    "CORBA::Exception", "IDL:omg.org/CORBA/Exception:1.0", nullptr, nullptr);
const CORBA_Exception::Description CORBA_SystemException::_description(
    "CORBA::SystemException", "IDL:omg.org/CORBA/SystemException:1.0", nullptr,
    &CORBA_Exception::_description);
const CORBA_Exception::Description CORBA_UserException::_description(
    "CORBA::UserException", "IDL:omg.org/CORBA/UserException:1.0", nullptr,
    &CORBA_Exception::_description);
CORBA_EXCEPTION_DEFINE(_CORBA_UNLINKED_UserException, "CORBA::UNLINKED_UserException",
                       "IDL:kelvanor/CORBA/UNLINKED_UserException:1.0", CORBA_UserException);

#define KELVANOR_DEFINE_SYSTEM_EXCEPTION(N)                                  \
    CORBA_EXCEPTION_DEFINE(CORBA_##N, "CORBA::" #N, "IDL:omg.org/CORBA/" #N ":1.0", \
                           CORBA_SystemException);
CORBA_SYSTEM_EXCEPTION_LIST(KELVANOR_DEFINE_SYSTEM_EXCEPTION)
#undef KELVANOR_DEFINE_SYSTEM_EXCEPTION

// ------------------------------------------------------------ the levels

CORBA_Exception::~CORBA_Exception() {}

const CORBA_Exception::Description* CORBA_Exception::_desc() const { return &_description; }

void CORBA_Exception::_write(TBostream&) const {}

void CORBA_Exception::_copy(TBistream&) {}

void CORBA_Exception::_pretty_print(TBostream& strm) const {
    putText(strm, std::string("Exception: ") + _desc()->name + "\n");
}

const char* CORBA_SystemException::completionName(CORBA::CompletionStatus c) {
    switch (c) {
        case CORBA::COMPLETED_YES: return "YES";
        case CORBA::COMPLETED_NO: return "NO";
        case CORBA::COMPLETED_MAYBE: return "MAYBE";
    }
    return "Invalid status";
}

void CORBA_SystemException::_write(TBostream& strm) const {
    strm << static_cast<unsigned long>(_minor);
    strm << static_cast<unsigned long>(_completed);
}

void CORBA_SystemException::_copy(TBistream& strm) {
    unsigned long minor = 0;
    unsigned long completed = 0;
    strm >> minor;
    strm >> completed;
    _minor = static_cast<CORBA::ULong>(minor);
    // Kept unchecked: a peer's odd value prints as "Invalid status".
    _completed = static_cast<CORBA::CompletionStatus>(static_cast<uint32_t>(completed));
}

void CORBA_SystemException::_pretty_print(TBostream& strm) const {
    putText(strm, std::string("Exception: ") + _desc()->name + "\n\tMinor: " +
                      std::to_string(_minor) + "\n\tCompletion Status: " +
                      completionName(_completed) + "\n");
}

void _CORBA_UNLINKED_UserException::_pretty_print(TBostream& strm) const {
    putText(strm, std::string("Exception: ") + id() + "\n");
}

// ------------------------------------------------------------ environment

CORBA_Environment::CORBA_Environment(const CORBA_Environment& other)
    : _exception(other._exception ? other._exception->_deep_copy() : nullptr) {}

CORBA_Environment& CORBA_Environment::operator=(const CORBA_Environment& other) {
    if (this != &other) exception(other._exception ? other._exception->_deep_copy() : nullptr);
    return *this;
}

CORBA_Environment::~CORBA_Environment() { delete _exception; }

void CORBA_Environment::exception(CORBA_Exception* e) {
    if (e == _exception) return;
    delete _exception;
    _exception = e;
}

CORBA_Environment* CORBA_Environment::_duplicate(const CORBA_Environment* env) {
    return env ? new CORBA_Environment(*env) : nullptr;
}

CORBA_Environment& CORBA::current_environment() {
    static CORBA_Environment env;
    return env;
}

void CORBA::release(CORBA_Environment* env) { delete env; }

// ------------------------------------------------------------ streams

TBostream& operator<<(TBostream& strm, const CORBA_Exception& e) {
    writeId(strm, streamId(e));
    e._write(strm);
    return strm;
}

TBistream& operator>>(TBistream& strm, CORBA_Exception*& e) {
    std::string id = readId(strm);
    if (!descriptions) {
        CORBA::current_environment().exception(new CORBA_INITIALIZE(0, CORBA::COMPLETED_NO));
        e = nullptr;
        return strm;
    }
    const CORBA_Exception::Description* d = CORBA_Exception::Description::desc(id.c_str());
    // An abstract level has no factory; its id on a stream is as unknown as
    // an id nobody registered.
    if (!d || !d->factory) throw CORBA_MARSHAL(0, CORBA::COMPLETED_NO);
    std::unique_ptr<CORBA_Exception> made(d->factory());
    made->_copy(strm);
    e = made.release();
    return strm;
}

CORBA_Exception* ZEBreadReplyException(TBistream& strm, bool system) {
    std::string id = readId(strm);
    const CORBA_Exception::Description* d = CORBA_Exception::Description::desc(id.c_str());
    std::unique_ptr<CORBA_Exception> made;
    if (d && d->factory)
        made.reset(d->factory());
    else if (system)
        made.reset(new CORBA_UNKNOWN);
    else
        return new _CORBA_UNLINKED_UserException(id.c_str());
    made->_copy(strm);
    return made.release();
}

std::ostream& operator<<(std::ostream& os, const CORBA_Exception& e) {
    TBostream strm(os);
    if (ZEBisConsole(os))
        e._pretty_print(strm);
    else
        e._write(strm);
    return os;
}

TBostream& operator<<(TBostream& strm, const CORBA_Environment& env) {
    const CORBA_Exception* e = env.exception();
    if (!e) {
        strm << 0UL;
        return strm;
    }
    unsigned long kind = 0;
    if (CORBA_SystemException::_narrow(e))
        kind = 2;
    else if (CORBA_UserException::_narrow(e))
        kind = 1;
    if (!kind) {
        std::cout << "CORBA::Environment::write: Unknown excecption " << std::endl;
        std::exit(1);
    }
    const char* id = streamId(*e);
    unsigned long count = std::strlen(id) + 1;
    strm << kind;
    strm << count;
    strm.put(id, static_cast<unsigned>(count));
    e->_write(strm);
    return strm;
}

TBistream& operator>>(TBistream& strm, CORBA_Environment& env) {
    unsigned long kind = 0;
    strm >> kind;
    if (kind == 0) {
        env.clear();
        return strm;
    }
    unsigned long count = 0;
    strm >> count;
    CORBA::ULong n = ZEBcheckCount(count);
    std::unique_ptr<char[]> id;
    if (n == 0) {
        // A count of 0 carries no bytes, not even the NUL: an empty id.
        id.reset(new char[1]);
    } else {
        id.reset(ZEBreadBlock<char>(strm, n));
    }
    // Terminate whatever came; a peer's id without its NUL stays in bounds.
    id[n ? n - 1 : 0] = '\0';
    const CORBA_Exception::Description* d = CORBA_Exception::Description::desc(id.get());
    std::unique_ptr<CORBA_Exception> made;
    if (d && d->factory) {
        made.reset(d->factory());
        made->_copy(strm);
    } else {
        made.reset(new _CORBA_UNLINKED_UserException(id.get()));
    }
    env.exception(made.release());
    return strm;
}

std::ostream& operator<<(std::ostream& os, const CORBA_Environment& env) {
    TBostream strm(os);
    if (!ZEBisConsole(os))
        strm << env;
    else if (env.exception())
        env.exception()->_pretty_print(strm);
    return os;
}
