// The client half of a reference: binding, and the request path that
// generated stubs take (create_request, send, receive_reply).
#include "zebstub.h"

#include <unistd.h>

#include <cstring>
#include <memory>

#include "dsaddr.h"
#include "except.h"
#include "zebglob.h"
#include "zeboid.h"
#include "zebstrm.h"

namespace {

// The request counter of the process; ids start at 1.
CORBA::ULong requestCounter = 0;

bool namedKind(CORBA::ULong kind) {
    return kind == ZEBStubInfo::KIND_NAMED || kind == ZEBStubInfo::KIND_TRANSIENT ||
           kind == ZEBStubInfo::KIND_SERVICE;
}

}  // namespace

ZEBStubInfo::ZEBStubInfo(CORBA_Object* object) : _object(object) {
    _header.requesting_principal = ZEBGlobalTable::_principal;
}

ZEBStubInfo::~ZEBStubInfo() {
    closeStream();
    delete _locator;
    delete _bind_options;
    delete _principal;
}

ZEBStubInfo& ZEBStubInfo::operator=(const ZEBStubInfo& other) {
    if (this == &other) return *this;
    _state = other.isBound() ? STUB_UNBOUND : other._state;
    _kind = other._kind;
    _host = other._host;
    _interface_name = other._interface_name;
    _object_name = other._object_name;
    delete _locator;
    _locator = (other._locator ? other._locator->copy() : nullptr);
    _header.object_key = other._header.object_key;
    _header.requesting_principal = other._header.requesting_principal;
    return *this;
}

void ZEBStubInfo::clone(const ZEBStubInfo& other) {
    if (other._bind_options) bindOptions(*other._bind_options);
    _kind = other._kind;
    _host = other._host;
    _interface_name = other._interface_name;
    _object_name = other._object_name;
    delete _locator;
    _locator = (other._locator ? other._locator->copy() : nullptr);
}

const CORBA_BindOptions& ZEBStubInfo::bindOptions() const {
    return _bind_options ? *_bind_options : ZEBGlobalTable::_bindOptions;
}

void ZEBStubInfo::bindOptions(const CORBA_BindOptions& options) {
    if (!_bind_options) _bind_options = new CORBA_BindOptions;
    *_bind_options = options;
}

const CORBA_OctetSequence& ZEBStubInfo::principal() const {
    return _principal ? *_principal : ZEBGlobalTable::_principal;
}

void ZEBStubInfo::principal(const CORBA_OctetSequence& p) {
    delete _principal;
    _principal = new CORBA_OctetSequence(p);
    _header.requesting_principal = p;
}

void ZEBStubInfo::bind(const char* interface_name, const char* object_name, const char* host,
                       unsigned long, const CORBA_BindOptions* options, unsigned char now) {
    _interface_name = interface_name;
    _object_name = object_name;
    if (host && *host) _host = DSAddr(0, host).ntoa();
    _kind = (interface_name && std::strcmp(interface_name, "*") == 0) ? KIND_SERVICE : KIND_NAMED;
    if (options) bindOptions(*options);
    if (!bindOptions().defer_connect && now) rebind(1);
}

void ZEBStubInfo::bind(IIOP::ObjectLocator* locator, unsigned char now) {
    delete _locator;
    _locator = locator;
    _kind = KIND_FOREIGN;
    if (locator && ZEBObjectId::isZEBKey(locator->object_key)) {
        std::unique_ptr<ZEBObjectId> id;
        try {
            id.reset(ZEBObjectId::convert(locator->object_key));
        } catch (const CORBA_MARSHAL&) {
        }
        if (id && id->type() == ZEBObjectId::ID_PERSISTENT) {
            const ZEBPersistentId& p = static_cast<const ZEBPersistentId&>(*id);
            _interface_name = p.interface_name();
            _object_name = p.object_name();
            _kind = KIND_NAMED;
        } else if (id && id->type() == ZEBObjectId::ID_SERVICE) {
            _interface_name = "*";
            _object_name = static_cast<const ZEBServiceId&>(*id).service_name();
            _kind = KIND_SERVICE;
        } else {
            _kind = KIND_TRANSIENT;
        }
    }
    if (now) rebind(1);
}

void ZEBStubInfo::rebind(unsigned char) {
    CORBA_Object_var hold(CORBA_Object::_duplicate(_object));
    if (isBound()) return;
    if (_state != STUB_UNBOUND && _state != STUB_LOST && !bindOptions().allow_rebind)
        throw CORBA_COMM_FAILURE(0, CORBA::COMPLETED_NO);
    // Only an address in hand can be reached for now: no locator or port 0
    // means a bind by names, which needs the agent or the daemon.
    if (!_locator || _locator->port == 0 || !_locator->host.in())
        throw CORBA_NO_IMPLEMENT(0, CORBA::COMPLETED_NO);
    std::unique_ptr<ZEBIIOPstream> s(new ZEBIIOPstream);
    try {
        s->connect(_locator->host.in(), _locator->port, bindOptions().connect_wait);
    } catch (const CORBA_SystemException&) {
        throw CORBA_NO_IMPLEMENT(0, CORBA::COMPLETED_NO);
    }
    if (ZEBGlobalTable::orb_send_bufsize) s->sendBufferSize(ZEBGlobalTable::orb_send_bufsize);
    if (ZEBGlobalTable::orb_rcv_bufsize) s->receiveBufferSize(ZEBGlobalTable::orb_rcv_bufsize);
    _stream = std::move(s);
    _header.object_key = _locator->object_key;
    _state = _state == STUB_LOST ? STUB_REBOUND : STUB_BOUND;
    if (namedKind(_kind)) {
        // The server counts its clients by these announcements.
        GIOPstream* strm = create_request("__bind", 1, 0);
        invoke();
        strm->flushRead();
    }
}

void ZEBStubInfo::closeStream() {
    if (_stream) _stream->close();
    _stream.reset();
}

void ZEBStubInfo::unbind() {
    closeStream();
    _state = STUB_LOST;
}

void ZEBStubInfo::close_connection() { unbind(); }

GIOPstream* ZEBStubInfo::create_request(const char* operation, unsigned char response_expected,
                                        unsigned int) {
    for (;;) {
        if (!isBound()) {
            // Dropping a dead reference never reconnects.
            if (std::strcmp(operation, "__unbind") == 0)
                throw CORBA_COMM_FAILURE(0, CORBA::COMPLETED_NO);
            rebind(1);
        }
        if (_stream && _stream->open()) break;
        unbind();
    }
    IIOP::MessageHeader h;
    std::memcpy(h.magic, IIOP::MAGIC_WORD, sizeof h.magic);
    h.iiop_version = IIOP::CURRENT_VERSION;
    h.byte_order = IIOP::BYTE_ORDER;
    h.message_type = IIOP::Request;
    h.message_size = 0;
    _header.request_id = ++requestCounter;
    _header.response_expected = response_expected;
    _header.operation = operation;
    _header.service_context.length(0);
    ZEBGlobalTable::instance()->sending_request(_object, _header, *_stream);
    _stream->beginWrite(bindOptions().send_wait);
    _stream->newOutEncapsulation();
    TBostream& out = *_stream;
    out << h << _header;
    return _stream.get();
}

void ZEBStubInfo::lost(const char* operation) {
    closeStream();
    _state = STUB_LOST;
    if (std::strcmp(operation, "__unbind") != 0 && bindOptions().allow_rebind)
        throw CORBA_TRANSIENT(0, CORBA::COMPLETED_NO);
    throw CORBA_COMM_FAILURE(0, CORBA::COMPLETED_NO);
}

void ZEBStubInfo::send(unsigned char) {
    try {
        _stream->sendMessage(bindOptions().send_wait);
    } catch (const CORBA_COMM_FAILURE&) {
        lost(_header.operation.in());
    } catch (const CORBA_Exception&) {
        closeStream();
        _state = STUB_LOST;
        throw;
    }
}

GIOPstream* ZEBStubInfo::receive_reply(unsigned char) {
    const CORBA::ULong expected = _header.request_id;
    const CORBA_String_var operation(_header.operation.in());
    ZEBIIOPstream* s = _stream.get();
    IIOP::ReplyHeader reply;
    for (;;) {
        try {
            s->receiveMessage(bindOptions().receive_wait);
        } catch (const CORBA_COMM_FAILURE&) {
            lost(operation.in());
        } catch (const CORBA_Exception&) {
            closeStream();
            _state = STUB_LOST;
            throw;
        }
        if (s->msgHeader().message_type != IIOP::Reply) {
            s->flushRead();
            throw CORBA_BAD_INV_ORDER(0, CORBA::COMPLETED_NO);
        }
        *s >> reply;
        if (reply.request_id == expected) break;
        // A reply to a request nobody waits for any more.
        s->flushRead();
    }
    if (reply.reply_status == IIOP::NO_EXCEPTION) return s;
    CORBA_Exception* e = nullptr;
    *s >> e;
    s->flushRead();
    if (!e) throw CORBA_MARSHAL(0, CORBA::COMPLETED_MAYBE);
    std::unique_ptr<CORBA_Exception> owned(e);
    // A busy server is given two seconds before the caller tries again.
    if (CORBA_TRANSIENT::_narrow(e)) sleep(2);
    CORBA::current_environment().exception(e->_deep_copy());
    e->_throw();
    return s;  // not reached
}

GIOPstream* ZEBStubInfo::invoke() {
    CORBA_Object_var hold(CORBA_Object::_duplicate(_object));
    send(1);
    return receive_reply(0);
}

IIOP::ObjectLocator* ZEBStubInfo::locator() {
    if (!_locator) {
        _locator = new IIOP::ObjectLocator;
        _locator->iiop_version = IIOP::CURRENT_VERSION;
        _locator->host = "";
        if (_kind == KIND_NAMED) {
            CORBA_OctetSequence_var key(
                ZEBPersistentId(_interface_name, _object_name).convert());
            _locator->object_key = *key.ptr();
        }
    }
    return _locator;
}
