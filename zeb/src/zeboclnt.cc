// Client connections: making one, sharing it among the stubs bound to its
// address, the locate exchange, and what the dispatcher tells an idle one.
#include "zeboclnt.h"

#include <memory>
#include <string>

#include "dispatch.h"
#include "dsassoc.h"
#include "dsprovider.h"
#include "except.h"
#include "zebglob.h"
#include "zeborb.h"
#include "zebreq.h"
#include "zebstrm.h"
#include "zebstub.h"

namespace {

// The name under which a connection made straight from a locator is known:
// the spelling is the one other processes of this broker use.
const char* const kForeignObject = "FORIEGN OBJECT";

// Spares kept idle for reuse; busier moments make more, which are closed
// again as their calls end.
const size_t kIdleSpares = 2;

// A connection made for one caller only: not entered in the ORB's table.
bool makingSpare = false;

}  // namespace

ZEBORBClient::ZEBORBClient(ZEBIIOPstream* stream, DSProvider* provider)
    : _stream(stream), _provider(provider), _stubs(16), _fd(stream->fd()) {
    TBResource::ref(_provider);
    gettimeofday(&_created, nullptr);
}

ZEBORBClient* ZEBORBClient::create(DSProvider* provider, const CORBA_BindOptions* options) {
    const DSAddr& addr = provider->address();
    const std::string host(addr.ntoa());  // ntoa's buffer is shared
    std::unique_ptr<ZEBIIOPstream> stream(new ZEBIIOPstream);
    stream->connect(host.c_str(), static_cast<unsigned short>(addr.port()),
                    options ? options->connect_wait : 0);
    // Non-blocking from now on, but where sendMessage and receiveMessage
    // choose otherwise for the time of a message.
    stream->blocking(0);
    if (ZEBGlobalTable::orb_send_bufsize) stream->sendBufferSize(ZEBGlobalTable::orb_send_bufsize);
    if (ZEBGlobalTable::orb_rcv_bufsize) stream->receiveBufferSize(ZEBGlobalTable::orb_rcv_bufsize);

    std::unique_ptr<ZEBORBClient> client(new ZEBORBClient(stream.release(), provider));
    client->_spare = makingSpare;
    if (ZEBGlobalTable::_orb && !makingSpare) ZEBGlobalTable::_orb->add(new DSAddr(addr), client.get());
    dpDispatcher::instance()->link(client->_fd, dpDispatcher::ReadMask, client.get());
    return client.release();
}

ZEBORBClient* ZEBORBClient::create(const IIOP::ObjectLocator& locator,
                                   const CORBA_BindOptions* options) {
    DSAddr addr(locator.port, locator.host.in() ? locator.host.in() : "");
    DSName name(kForeignObject, DS_ARG_DEFAULT, DS_SERVICE_NAME, nullptr);
    DSProvider* provider = new DSProvider(name, addr, DS_PROTOCOL_DEFAULT, 0);
    // The provider has no holder yet: a failed create leaves it to us.
    TBResource::ref(provider);
    ZEBORBClient* client = nullptr;
    try {
        client = create(provider, options);
    } catch (...) {
        TBResource::unref(provider);
        throw;
    }
    TBResource::unref(provider);
    return client;
}

ZEBORBClient::~ZEBORBClient() {
    stopTimer();
    closeSpares();
    if (linkedHere()) dpDispatcher::instance()->unlink(_fd);
    if (ZEBGlobalTable::_orb) ZEBGlobalTable::_orb->remove(_provider->address(), this);
    delete _stream;
    TBResource::unref(_provider);
}

void ZEBORBClient::release(ZEBORBClient* c) {
    if (c && --c->_references <= 0) delete c;
}

bool ZEBORBClient::linkedHere() const {
    return _fd >= 0 && dpDispatcher::instance()->handler(_fd, dpDispatcher::ReadMask) == this;
}

void ZEBORBClient::startTimer(unsigned long seconds) {
    dpDispatcher::instance()->startTimer(static_cast<long>(seconds), 0, this);
    _timerRunning = true;
}

void ZEBORBClient::stopTimer() {
    if (!_timerRunning) return;
    dpDispatcher::instance()->stopTimer(this);
    _timerRunning = false;
}

void ZEBORBClient::add(ZEBStubInfo* stub) {
    // A stub already here keeps its wrapper; the new one then goes again.
    DSWrapper* w = new DSWrapper(stub);
    TBResource::ref(w);
    _stubs.add(*w);
    TBResource::unref(w);
    if (!_timerRunning && !_closing && ZEBGlobalTable::keep_alive_timer != 0)
        startTimer(ZEBGlobalTable::keep_alive_timer);
}

void ZEBORBClient::remove(ZEBStubInfo* stub) {
    if (_closing) return;
    DSWrapper key(stub);
    _stubs.remove(key);
}

ZEBStubInfo* ZEBORBClient::firstStub() const {
    DSIterator it(_stubs);
    DSWrapper* w = TB_CAST(DSWrapper, it.next());
    return w ? static_cast<ZEBStubInfo*>(w->value) : nullptr;
}

bool ZEBORBClient::inUse() const {
    return _readers > 0 || _stream->waiting() || (_spare && _deferred > 0);
}

ZEBORBClient* ZEBORBClient::forCall(const CORBA_BindOptions* options) {
    if (!inUse()) return this;
    size_t idle = 0;
    ZEBORBClient* found = nullptr;
    for (size_t i = 0; i < _spares.size();) {
        ZEBORBClient* s = _spares[i];
        if (s->_closing || !s->_stream->open()) {
            // Closed by its server or by a failed call: of no more use.
            _spares.erase(_spares.begin() + static_cast<long>(i));
            release(s);
            continue;
        }
        if (!s->inUse()) {
            if (!found) found = s;
            else if (++idle >= kIdleSpares) {
                _spares.erase(_spares.begin() + static_cast<long>(i));
                s->close();
                release(s);
                continue;
            }
        }
        ++i;
    }
    if (found) return found;
    struct Flag {
        Flag() { makingSpare = true; }
        ~Flag() { makingSpare = false; }
    } flag;
    ZEBORBClient* s = create(_provider, options);
    duplicate(s);
    _spares.push_back(s);
    return s;
}

void ZEBORBClient::closeSpares() {
    std::vector<ZEBORBClient*> spares;
    spares.swap(_spares);
    for (ZEBORBClient* s : spares) {
        s->close();
        release(s);
    }
}

int ZEBORBClient::drain() {
    ZEBClientHold self(this);
    try {
        do {
            _stream->receiveMessage(0);
            if (_stream->msgHeader().message_type == IIOP::Reply) {
                IIOP::ReplyHeader reply;
                static_cast<TBistream&>(*_stream) >> reply;
                ZEBRequest::consume(reply, *_stream);
            }
            _stream->discardCurMsg();
        } while (_stream->open() && _stream->hasMoreData());
    } catch (const CORBA_Exception&) {
        _stream->flushRead();
        close();
    }
    return linkedHere() ? -1 : 0;
}

IIOP::LocateStatusType ZEBORBClient::locate(const CORBA_OctetSequence& key, IOP::IOR*& ior,
                                            const CORBA_BindOptions* options) {
    ZEBORBClient* c = forCall(options);
    if (c == this) {
        // New, perhaps, and held by nobody yet: a hold would delete it on
        // the way out.
        reading(1);
        try {
            IIOP::LocateStatusType status = locateHere(key, ior, options);
            reading(-1);
            return status;
        } catch (...) {
            reading(-1);
            throw;
        }
    }
    // A spare is held: closing this client meanwhile lets go of its spares.
    ZEBClientHold hold(c, true);
    return c->locateHere(key, ior, options);
}

IIOP::LocateStatusType ZEBORBClient::locateHere(const CORBA_OctetSequence& key, IOP::IOR*& ior,
                                                const CORBA_BindOptions* options) {
    ior = nullptr;
    ZEBIIOPstream& s = *_stream;
    // A closed stream keeps its old descriptor number, which may belong to
    // another connection by now: never write through it.
    if (!s.open()) throw CORBA_COMM_FAILURE(0, CORBA::COMPLETED_NO);
    s.beginWrite(0);
    s.newOutEncapsulation();
    s.writeMessageHeader(IIOP::LocateRequest);
    IIOP::LocateRequestHeader request;
    request.request_id = 0;
    request.object_key = key;
    static_cast<TBostream&>(s) << request;
    try {
        s.sendAndWaitForReply(options ? options->send_wait + options->receive_wait : 0);
    } catch (const CORBA_SystemException&) {
        s.flushRead();
        throw;
    }
    if (s.msgHeader().message_type != IIOP::LocateReply) {
        s.flushRead();
        throw CORBA_NO_IMPLEMENT(0, CORBA::COMPLETED_NO);
    }
    IIOP::LocateReplyHeader reply;
    try {
        static_cast<TBistream&>(s) >> reply;
        if (reply.locate_status == IIOP::OBJECT_FORWARD) {
            std::unique_ptr<IOP::IOR> forward(new IOP::IOR);
            static_cast<TBistream&>(s) >> *forward;
            ior = forward.release();
        }
    } catch (const CORBA_MARSHAL&) {
        s.flushRead();
        throw;
    }
    s.flushRead();
    if (reply.locate_status != IIOP::OBJECT_HERE && reply.locate_status != IIOP::OBJECT_FORWARD)
        throw CORBA_NO_IMPLEMENT(0, CORBA::COMPLETED_NO);
    return reply.locate_status;
}

void ZEBORBClient::close() {
    _closing = true;
    closeSpares();
    // A closed connection needs no keep-alive, and once closing the stubs
    // set is no longer kept up to date: the timer must not walk it.
    stopTimer();
    // The descriptor number is free once closed; whoever gets it next must
    // not find this client in the dispatcher.
    if (linkedHere()) dpDispatcher::instance()->unlink(_fd);
    _stream->close();
}

int ZEBORBClient::inputReady(int fd) {
    // Closed under a wait that had the stream linked in its place: the set
    // is stale, and only the descriptor's entry is left to go.
    if (_closing) return linkedHere() ? -1 : 0;
    // Nobody calls on a spare between calls: a deferred request's reply, a
    // late one, or its server closing, is read here.
    if (_spare) return drain();
    ZEBStubInfo* stub = firstStub();
    // Without a stub the data stays unread and select reports it again.
    if (!stub) return 0;
    // The reply may run a nested dispatch in which the last holders of the
    // object or of this client let go; both stay until this call is over.
    ZEBClientHold self(this);
    CORBA_Object_var object(CORBA_Object::_duplicate(stub->object()));
    if (!stub->receive_reply(1)) {
        // The stub has closed the connection, which took this client out of
        // the dispatcher already unless a wait had it linked elsewhere.
        return linkedHere() ? -1 : 0;
    }
    if (_stream->open() && _stream->hasMoreData()) return inputReady(fd);
    return 0;
}

void ZEBORBClient::timerExpired(long, long) {
    _timerRunning = false;
    const unsigned long period = ZEBGlobalTable::keep_alive_timer;
    if (_stubs.size() == 0 || period == 0 || _closing) return;
    ZEBStubInfo* bound = nullptr;
    DSIterator it(_stubs);
    while (DSWrapper* w = TB_CAST(DSWrapper, it.next())) {
        ZEBStubInfo* stub = static_cast<ZEBStubInfo*>(w->value);
        if (stub->isBound()) {
            bound = stub;
            break;
        }
    }
    // No bound stub: the timer stays off until a stub joins again.
    if (!bound) return;

    timeval now;
    gettimeofday(&now, nullptr);
    const long age = static_cast<long>(now.tv_sec - _created.tv_sec);
    if (age >= 0 && static_cast<unsigned long>(age) < period) {
        startTimer(period - static_cast<unsigned long>(age));
        return;
    }
    ZEBClientHold self(this);
    CORBA_Object_var object(CORBA_Object::_duplicate(bound->object()));
    try {
        // An ordinary request on this connection; a failure has been dealt
        // with by the stub, and there is nothing left to keep alive.
        object->_non_existent();
    } catch (const CORBA_Exception&) {
        return;
    }
    if (!_closing && !_timerRunning && ZEBGlobalTable::keep_alive_timer != 0)
        startTimer(ZEBGlobalTable::keep_alive_timer);
}
