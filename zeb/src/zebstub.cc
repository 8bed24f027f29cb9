// The client half of a reference: binding (by names, by locator, and again
// after a loss), and the request path that generated stubs and dynamic
// requests take (create_request, send, receive_reply).
#include "zebstub.h"

#include <unistd.h>

#include <cstring>
#include <memory>

#include "dsaddr.h"
#include "dsprovider.h"
#include "except.h"
#include "zebglob.h"
#include "zeboclnt.h"
#include "zeboid.h"
#include "zeborb.h"
#include "zebreq.h"
#include "zebstrm.h"

ZEBClientEventHandler::~ZEBClientEventHandler() {}
ZEBBindHandler::~ZEBBindHandler() {}

namespace {

// The request counter of the process; ids start at 1.
CORBA::ULong requestCounter = 0;

// Kinds whose servers are told of each client by __bind and __unbind.
bool announcedKind(CORBA::ULong kind) {
    return kind == ZEBStubInfo::KIND_NAMED || kind == ZEBStubInfo::KIND_TRANSIENT ||
           kind == ZEBStubInfo::KIND_SERVICE;
}

// What a key in use says about the reference.
CORBA::ULong kindOfKey(const CORBA_OctetSequence& key) {
    // A key of another broker stays foreign: its server knows nothing of
    // __bind, and a reference bound to it again must not start sending it.
    if (!ZEBObjectId::isZEBKey(key)) return ZEBStubInfo::KIND_FOREIGN;
    std::unique_ptr<ZEBObjectId> id;
    try {
        id.reset(ZEBObjectId::convert(key));
    } catch (const CORBA_MARSHAL&) {
    }
    if (id && id->type() == ZEBObjectId::ID_PERSISTENT) return ZEBStubInfo::KIND_NAMED;
    if (id && id->type() == ZEBObjectId::ID_SERVICE) return ZEBStubInfo::KIND_SERVICE;
    return ZEBStubInfo::KIND_TRANSIENT;
}

unsigned long sendWait(const CORBA_BindOptions* options) {
    return options ? options->send_wait : 0;
}

unsigned long receiveWait(const CORBA_BindOptions* options) {
    return options ? options->receive_wait : 0;
}

[[noreturn]] void lostConnection(bool allowRebind) {
    if (allowRebind) throw CORBA_TRANSIENT(0, CORBA::COMPLETED_NO);
    throw CORBA_COMM_FAILURE(0, CORBA::COMPLETED_NO);
}


}  // namespace

ZEBStubInfo::ZEBStubInfo(CORBA_Object* object) : _object(object) {
    _header.requesting_principal = ZEBGlobalTable::_principal;
}

ZEBStubInfo::~ZEBStubInfo() {
    setClient(nullptr);
    setCall(nullptr);
    CORBA::release(_forward_key);
    delete _locator;
    delete _bind_options;
    delete _principal;
}

ZEBStubInfo& ZEBStubInfo::operator=(const ZEBStubInfo& other) {
    if (this == &other) return *this;
    _state = other._state;
    _kind = other._kind;
    _host = other._host;
    _interface_name = other._interface_name;
    _object_name = other._object_name;
    setClient(other._client);
    if (_client) _client->add(this);
    delete _locator;
    _locator = other._locator ? other._locator->copy() : nullptr;
    CORBA_OctetSequence* key = CORBA_OctetSequence::_duplicate(other._forward_key);
    CORBA::release(_forward_key);
    _forward_key = key;
    _header = other._header;
    return *this;
}

void ZEBStubInfo::clone(const ZEBStubInfo& other) {
    if (this == &other) return;
    if (other._bind_options) bindOptions(*other._bind_options);
    _kind = other._kind;
    _host = other._host;
    _interface_name = other._interface_name;
    _object_name = other._object_name;
    delete _locator;
    _locator = other._locator ? other._locator->copy() : nullptr;
    _client_handler = other._client_handler;
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

ZEBClientEventHandler* ZEBStubInfo::eventHandler() const {
    return _client_handler ? _client_handler : ZEBGlobalTable::_clientEventHandler;
}

void ZEBStubInfo::setCall(ZEBORBClient* client) {
    if (client == _call) return;
    ZEBORBClient::duplicate(client);
    ZEBORBClient::release(_call);
    _call = client;
}

void ZEBStubInfo::setClient(ZEBORBClient* client) {
    if (client == _client) return;
    setCall(nullptr);
    ZEBORBClient::duplicate(client);
    if (_client) {
        _client->remove(this);
        ZEBORBClient::release(_client);
    }
    _client = client;
}

// ---- Binding.

void ZEBStubInfo::bind(const char* interface_name, const char* object_name, const char* host,
                       unsigned long, const CORBA_BindOptions* options, unsigned char now) {
    _interface_name = interface_name;
    _object_name = object_name;
    // A host name is kept as its address, the form providers are known by.
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

void ZEBStubInfo::tellBound(ZEBClientEventHandler* handler, bool first) {
    std::unique_ptr<ZEB_EXT::ConnectionInfo> peer(
        _client ? _client->stream()->peerInfo() : new ZEB_EXT::ConnectionInfo);
    if (first) handler->bound(_object, peer.get());
    else handler->rebound(_object, peer.get());
}

void ZEBStubInfo::notifyFailure(ZEBClientEventHandler* handler, unsigned char notify) {
    if (!handler || !notify) return;
    if (_state == STUB_UNBOUND || _state == STUB_BOUND) handler->bindFailed(_object);
    else handler->rebindFailed(_object);
}

ZEBORBClient* ZEBStubInfo::findClient() {
    ZEBORB* orb = ZEBGlobalTable::instance()->_orb;
    if (_kind == KIND_TRANSIENT || _kind == KIND_FOREIGN) {
        if (!_locator) return nullptr;
        return orb->locate(*_locator, &_forward_key, _bind_options);
    }
    if (!_locator) return orb->locate(_interface_name, _object_name, _host, &_forward_key,
                                      _bind_options);

    // The address in hand first; the names are the second way to the same
    // object, for a server that moved. The daemon has no second way: it
    // would end up asking itself.
    ZEBORBClient* client = nullptr;
    try {
        client = orb->locate(*_locator, &_forward_key, _bind_options);
    } catch (const CORBA_SystemException&) {
        if (ZEBGlobalTable::is_vex) throw;
    }
    if (client || ZEBGlobalTable::is_vex) return client;
    if (_kind == KIND_SERVICE && !_forward_key)
        _forward_key = new CORBA_OctetSequence(_locator->object_key);
    client = orb->locate(_interface_name, _object_name, _host, &_forward_key, _bind_options);
    if (client) {
        const DSAddr& at = client->provider().address();
        _locator->host = CORBA::strdup(at.ntoa());
        _locator->port = static_cast<CORBA::UShort>(at.port());
    }
    return client;
}

void ZEBStubInfo::rebind(unsigned char notify) {
    CORBA_Object_var hold(CORBA_Object::_duplicate(_object));
    if (isBound()) return;
    if (_state != STUB_UNBOUND && _state != STUB_LOST && !bindOptions().allow_rebind)
        throw CORBA_COMM_FAILURE(0, CORBA::COMPLETED_NO);
    ZEBClientEventHandler* handler = eventHandler();
    ZEBBindHandler* binder = ZEBGlobalTable::_bindHandler;

    if (announcedKind(_kind) && binder) {
        CORBA_Object_var other(_state == STUB_LOST
                                   ? binder->preRebind(_interface_name, _object_name, _host,
                                                       bindOptions())
                                   : binder->preBind(_interface_name, _object_name, _host,
                                                     bindOptions()));
        if (!CORBA::is_nil(other.in()) && !other->_is_local() && other->_stub()) {
            *this = *other->_stub();
            if (isBound()) {
                if (handler) tellBound(handler, _state == STUB_BOUND);
                return;
            }
        }
    }

    CORBA::release(_forward_key);
    _forward_key = nullptr;
    ZEBORBClient* client = findClient();
    setClient(client);
    if (!_forward_key && _client && _locator) _header.object_key = _locator->object_key;
    if (_kind == KIND_UNKNOWN && _client)
        _kind = kindOfKey(_forward_key ? *_forward_key : _header.object_key);
    if (!_client) {
        notifyFailure(handler, notify);
        throw CORBA_NO_IMPLEMENT(0, CORBA::COMPLETED_NO);
    }
    if (_forward_key) _header.object_key = *_forward_key;
    _client->add(this);
    const CORBA::ULong before = _state;
    _state = _state == STUB_LOST ? STUB_REBOUND : STUB_BOUND;
    if (!announcedKind(_kind)) return;
    try {
        afterBind(handler, notify);
    } catch (...) {
        // A bind that fails here leaves the reference as it was before.
        setClient(nullptr);
        CORBA::release(_forward_key);
        _forward_key = nullptr;
        _state = before;
        throw;
    }
}

void ZEBStubInfo::afterBind(ZEBClientEventHandler* handler, unsigned char notify) {
    // The server counts its clients by these announcements. The reply has
    // no body.
    GIOPstream* strm = create_request("__bind", 1, 0);
    strm = invoke();
    strm->flushRead();
    if (ZEBBindHandler* binder = ZEBGlobalTable::_bindHandler) {
        CORBA_Object* accepted =
            _state == STUB_BOUND
                ? binder->postBind(_object, _interface_name, _object_name, _host, bindOptions())
                : binder->postRebind(_object, _interface_name, _object_name, _host,
                                     bindOptions());
        if (CORBA::is_nil(accepted)) {
            notifyFailure(handler, notify);
            throw CORBA_NO_IMPLEMENT(1001, CORBA::COMPLETED_MAYBE);
        }
    }
    if (handler) tellBound(handler, _state == STUB_BOUND);
}

void ZEBStubInfo::unbind() {
    setClient(nullptr);
    CORBA::release(_forward_key);
    _forward_key = nullptr;
    _state = STUB_LOST;
    _kind = KIND_UNKNOWN;
}

void ZEBStubInfo::release() {
    if (isBound() && _client) {
        _state = STUB_LOST;
        _client->remove(this);
    }
    delete this;
}

void ZEBStubInfo::close_connection() {
    CORBA_Object_var hold(CORBA_Object::_duplicate(_object));
    _state = STUB_LOST;
    setClient(nullptr);
    if (ZEBClientEventHandler* handler = eventHandler()) handler->serverLost(_object);
    ZEBRequest::exception(_object, CORBA_COMM_FAILURE(0, CORBA::COMPLETED_NO));
}

// ---- Requests.

GIOPstream* ZEBStubInfo::create_request(const char* operation, unsigned char response_expected,
                                        unsigned int) {
    for (;;) {
        if (!isBound()) {
            // Dropping a dead reference never reconnects.
            if (std::strcmp(operation, "__unbind") == 0)
                throw CORBA_COMM_FAILURE(0, CORBA::COMPLETED_NO);
            rebind(1);
        }
        if (_client && _client->stream()->open()) break;
        // The connection died under the reference: bind again.
        unbind();
    }
    // The bound connection itself is not counted twice.
    ZEBORBClient* call = _client->forCall(_bind_options);
    setCall(call == _client ? nullptr : call);
    ZEBIIOPstream* strm = call->stream();
    IIOP::MessageHeader h;
    std::memcpy(h.magic, IIOP::MAGIC_WORD, sizeof h.magic);
    h.iiop_version = IIOP::CURRENT_VERSION;
    h.byte_order = IIOP::BYTE_ORDER;
    h.message_type = IIOP::Request;
    h.message_size = 0;
    if (_receiving > _held.size()) _held.push_back(_header);
    _header.request_id = ++requestCounter;
    _header.response_expected = response_expected;
    // The same operation as the last call keeps its copy.
    if (!_header.operation.in() || std::strcmp(_header.operation.in(), operation) != 0)
        _header.operation = operation;
    _header.service_context.length(0);
    ZEBGlobalTable::instance()->sending_request(_object, _header, *strm);
    strm->beginWrite(sendWait(_bind_options));
    strm->newOutEncapsulation();
    TBostream& out = *strm;
    out << h << _header;
    return strm;
}

void ZEBStubInfo::reportFailure(bool sending, IIOP::RequestHeader& header,
                                const CORBA_Exception& e) {
    CORBA_Environment env;
    env.exception(e._deep_copy());
    try {
        ZEBGlobalTable* table = ZEBGlobalTable::instance();
        if (sending) table->send_failed(_object, header, env);
        else table->receive_failed(_object, header, env);
    } catch (const CORBA_Exception&) {
        // A service handler's trouble does not replace the caller's.
    }
}

void ZEBStubInfo::send(unsigned char) {
    ZEBORBClient* client = callClient();
    if (!client) throw CORBA_COMM_FAILURE(0, CORBA::COMPLETED_NO);
    ZEBIIOPstream* strm = client->stream();
    try {
        strm->sendMessage(sendWait(_bind_options));
    } catch (const CORBA_COMM_FAILURE& e) {
        if (std::strcmp(_header.operation.in(), "__unbind") == 0) {
            strm->flushRead();
            throw;
        }
        reportFailure(true, _header, e);
        strm->flushRead();
        client->close();
        lostConnection(bindOptions().allow_rebind);
    } catch (const CORBA_Exception& e) {
        reportFailure(true, _header, e);
        strm->flushRead();
        client->close();
        throw;
    }
}

GIOPstream* ZEBStubInfo::receive_reply(unsigned char from_dispatcher) {
    // The dispatcher calls for input on the connection the stub is bound
    // to; a call reads where it sent.
    ZEBORBClient* client = from_dispatcher ? _client : callClient();
    if (!client) throw CORBA_COMM_FAILURE(0, CORBA::COMPLETED_NO);
    // A nested call on this stub may change its header and even its client
    // while this one waits; its request keeps the header of this one.
    struct Awaited {
        ZEBStubInfo* stub;
        std::size_t mark;
        CORBA::ULong id;
        ~Awaited() {
            stub->_held.erase(stub->_held.begin() + static_cast<std::ptrdiff_t>(mark),
                              stub->_held.end());
            --stub->_receiving;
        }
        IIOP::RequestHeader& header() const {
            return stub->_held.size() > mark ? stub->_held[mark] : stub->_header;
        }
    } awaited{this, _held.size(), _header.request_id};
    ++_receiving;
    // Handlers told of a failure may call on this stub again: they get a copy.
    auto report = [&awaited, this](const CORBA_Exception& e) {
        IIOP::RequestHeader header(awaited.header());
        reportFailure(false, header, e);
    };
    ZEBClientHold hold(client, true);
    ZEBIIOPstream* strm = client->stream();
    IIOP::ReplyHeader reply;
    for (;;) {
        try {
            strm->receiveMessage(receiveWait(_bind_options));
            if (strm->msgHeader().message_type == IIOP::Reply) *strm >> reply;
        } catch (const CORBA_COMM_FAILURE& e) {
            report(e);
            strm->flushRead();
            client->close();
            if (from_dispatcher) return nullptr;
            lostConnection(bindOptions().allow_rebind);
        } catch (const CORBA_Exception& e) {
            report(e);
            strm->flushRead();
            client->close();
            if (from_dispatcher) return nullptr;
            throw;
        }
        if (strm->msgHeader().message_type != IIOP::Reply) {
            // A LocateReply, or anything else, has no business here.
            CORBA_BAD_INV_ORDER wrong(0, CORBA::COMPLETED_NO);
            report(wrong);
            strm->discardCurMsg();
            strm->flushRead();
            if (!from_dispatcher) throw wrong;
            return strm;
        }
        if (!from_dispatcher && reply.request_id == awaited.id) break;
        // A reply to another request: a deferred request takes its own,
        // anything else is dropped. Either way the rest of the message is
        // skipped, so that only later messages count as input still to read.
        ZEBRequest::consume(reply, *strm);
        strm->discardCurMsg();
        strm->flushRead();
        if (from_dispatcher) return strm;
    }
    if (reply.reply_status == IIOP::NO_EXCEPTION) {
        try {
            ZEBGlobalTable::instance()->received_reply(_object, reply, *strm);
        } catch (const CORBA_Exception&) {
            strm->flushRead();
            throw;
        }
        return strm;
    }
    IIOP::RequestHeader header(awaited.header());
    throwReplied(strm, header, reply.reply_status == IIOP::SYSTEM_EXCEPTION);
}

void ZEBStubInfo::throwReplied(GIOPstream* strm, IIOP::RequestHeader& header, bool system) {
    std::unique_ptr<CORBA_Exception> e(ZEBreadReplyException(*strm, system));
    reportFailure(false, header, *e);
    strm->flushRead();
    // A busy server is given two seconds before the caller tries again.
    if (CORBA_TRANSIENT::_narrow(e.get())) sleep(2);
    CORBA::current_environment().exception(e->_deep_copy());
    e->_throw();
    // _throw always throws; the exception object goes with e.
    throw CORBA_UNKNOWN(0, CORBA::COMPLETED_MAYBE);
}

GIOPstream* ZEBStubInfo::invoke() {
    CORBA_Object_var hold(CORBA_Object::_duplicate(_object));
    send(1);
    return receive_reply(0);
}

IIOP::ObjectLocator* ZEBStubInfo::locator() {
    if (_locator) return _locator;
    std::unique_ptr<IIOP::ObjectLocator> loc(new IIOP::ObjectLocator);
    loc->iiop_version = IIOP::CURRENT_VERSION;
    if (_kind == KIND_NAMED) {
        CORBA_OctetSequence_var key(ZEBPersistentId(_interface_name, _object_name).convert());
        loc->object_key = *key.ptr();
    } else if (_forward_key) {
        loc->object_key = *_forward_key;
    }
    if (_client) {
        const DSAddr& at = _client->provider().address();
        loc->host = CORBA::strdup(at.ntoa());
        loc->port = static_cast<CORBA::UShort>(at.port());
    } else {
        loc->host = CORBA::strdup("");
    }
    _locator = loc.release();
    return _locator;
}
