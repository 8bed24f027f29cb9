// One accepted connection of the server side: GIOP messages in, replies out,
// and every failure of a request turned into the reply the client expects.
// A connection deletes itself when it ends; nothing else owns it.
#include "zebbclnt.h"

#include <time.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "dispatch.h"
#include "dsaddr.h"
#include "except.h"
#include "impldef.h"
#include "object.h"
#include "zebboa.h"
#include "zebdefer.h"
#include "zebglob.h"
#include "zeboid.h"
#include "zebskel.h"
#include "zebstrm.h"
#include "zebstring.h"

ZEBImplEventHandler::~ZEBImplEventHandler() {}

ZEBBOAClientData* ZEBBOAClient::_serving = nullptr;

const ZEBBOAClient::Handler ZEBBOAClient::_funcArray[8] = {
    &ZEBBOAClient::request,           &ZEBBOAClient::unexpectedMessage,
    &ZEBBOAClient::cancelRequest,     &ZEBBOAClient::locateRequest,
    &ZEBBOAClient::unexpectedMessage, &ZEBBOAClient::closeConnection,
    &ZEBBOAClient::messageError,      &ZEBBOAClient::shmConnectRequest,
};

namespace {

void fillHeader(IIOP::MessageHeader& h, IIOP::MsgType type) {
    std::memcpy(h.magic, IIOP::MAGIC_WORD, sizeof h.magic);
    h.iiop_version = IIOP::CURRENT_VERSION;
    h.byte_order = IIOP::BYTE_ORDER;
    h.message_type = type;
    h.message_size = 0;
}

// Takes the connection out of the dispatcher for the time of a request, so
// that a nested dispatch cannot read its next message; puts it back on
// every way out.
class StreamUnlinker {
public:
    explicit StreamUnlinker(ZEBBOAClient* client) : _client(client) { _client->UnlinkStream(); }
    ~StreamUnlinker() { _client->LinkStream(true); }
    StreamUnlinker(const StreamUnlinker&) = delete;
    StreamUnlinker& operator=(const StreamUnlinker&) = delete;

private:
    ZEBBOAClient* _client;
};

// A reply that was prepared but never sent (__unbind, a servant that threw
// after preparing) must not leave its drop mark for the next request's.
class DropMarkClearer {
public:
    explicit DropMarkClearer(ZEBIIOPstream* stream) : _stream(stream) {}
    ~DropMarkClearer() { _stream->keepNextMessage(); }
    DropMarkClearer(const DropMarkClearer&) = delete;
    DropMarkClearer& operator=(const DropMarkClearer&) = delete;

private:
    ZEBIIOPstream* _stream;
};

// The reference skelAt gave, dropped on every way out.
struct SkelRef {
    ZEBSkelInfo* skel = nullptr;
    ~SkelRef() { TBResource::unref(skel); }
};

// Our own keys decode; a key with the magic that ends early is as foreign
// as one without.
ZEBObjectId* decodeKey(const CORBA_OctetSequence& key) {
    try {
        return ZEBObjectId::convert(key);
    } catch (const CORBA_MARSHAL&) {
        return nullptr;
    }
}

// Milliseconds of the monotonic clock: deadlines of whole seconds, counted
// from the moment to the millisecond.
long monotonicMs() {
    timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return static_cast<long>(t.tv_sec) * 1000 + t.tv_nsec / 1000000;
}

bool isPerConnection(CORBA::ULong policy) {
    return policy == CORBA_CreationImplDef::UNSHARED_SERVER ||
           policy == CORBA_CreationImplDef::SERVER_PER_METHOD;
}

}  // namespace

ZEBBOAClientData::ZEBBOAClientData(ZEBBOAClient* client) : _client(client) {
    fillHeader(_header, IIOP::Reply);
}

ZEBBOAClient::ZEBBOAClient(int fd, ZEBBOA* boa) : _boa(boa), _bound(16) {
    _stream = new ZEBIIOPstream;
    _stream->attach(fd);
    _stream->queueOutput();
    _lastInput = _inputMoved = _outputMoved = monotonicMs();
    if (ZEBGlobalTable::boa_send_bufsize) _stream->sendBufferSize(ZEBGlobalTable::boa_send_bufsize);
    if (ZEBGlobalTable::boa_rcv_bufsize) _stream->receiveBufferSize(ZEBGlobalTable::boa_rcv_bufsize);
    _peer = _stream->peerInfo();
    _table = ZEBGlobalTable::instance();
    ZEBGlobalTable::addBOAClient(this);
    LinkStream();
    armTimer();
}

ZEBBOAClient::~ZEBBOAClient() {
    for (ZEBDeferredReply* r : _deferred) r->detach();
    _deferred.clear();
    UnlinkStream();
    if (_timerAt) dpDispatcher::instance()->stopTimer(this);
    ZEBGlobalTable::removeBOAClient(this);
    {
        // Every client bound here is gone now: its __unbind calls are owed.
        DSIterator it(_bound);
        while (DSAssoc* a = TB_CAST(DSAssoc, it.next())) {
            TBResource::ref(a);
            ZEBSkelInfo* skel = TB_CAST(ZEBSkelInfo, a->key);
            if (isPerConnection(skel->_policy)) _exit_on_close = true;
            // Each unbind replaces the count object; read it afresh.
            while (TB_CAST(ZEBUniqueId, a->value)->id() != 0) unbind(skel, 1);
            TBResource::unref(a);
        }
    }
    if (_exit_on_close && !ZEBGlobalTable::_exiting) {
        DSIterator it(_bound);
        while (DSAssoc* a = TB_CAST(DSAssoc, it.next())) TB_CAST(ZEBSkelInfo, a->key)->deactivate();
        _bound.removeAll();
        delete _stream;
        _stream = nullptr;
        // An unshared server lives exactly as long as its client's
        // connection.
        exit(0);
    }
    _bound.removeAll();
    remember(CORBA_OctetSequence(), nullptr);
    delete _stream;
    delete _peer;
}

void ZEBBOAClient::LinkStream(bool sameFile) {
    if (_stream && _stream->fd() >= 0 && !_linked) {
        dpDispatcher* d = dpDispatcher::instance();
        if (sameFile)
            d->relink(_stream->fd(), dpDispatcher::ReadMask, this);
        else
            d->link(_stream->fd(), dpDispatcher::ReadMask, this);
        _linked = true;
        _writeLinked = false;
        relink();
    }
}

void ZEBBOAClient::UnlinkStream() {
    if (_stream && _stream->fd() >= 0 && _linked) {
        dpDispatcher::instance()->unlink(_stream->fd());
        _linked = false;
        _writeLinked = false;
    }
}

unsigned long ZEBBOAClient::messageLimit() {
    return std::max<unsigned long>(ZEBGlobalTable::tcp_read_size, 64UL << 20);
}

int ZEBBOAClient::inputReady(int) {
    if (ZEBBOA::_exit_loop) return -1;
    ++_active;
    ZEBIIOPstream* s = _stream;
    int result = 0;
    bool ended = false;
    try {
        if (s->readAvailable(messageLimit(), ended) > 0) _lastInput = _inputMoved = monotonicMs();
    } catch (const CORBA_SystemException&) {
        result = -1;
    }
    // Every whole message is served, those a client pipelined too; each
    // reads only buffered bytes.
    ZEBIIOPstream::InputState input = ZEBIIOPstream::INPUT_PARTIAL;
    while (result == 0 && (input = s->bufferedMessage(messageLimit())) == ZEBIIOPstream::INPUT_WHOLE) {
        if (ZEBBOA::_exit_loop) {
            --_active;
            return -1;
        }
        // The daemon never reads a connection twice at once.
        if (ZEBGlobalTable::is_vex) UnlinkStream();
        try {
            s->receiveMessage(0);
            result = processMessage();
        } catch (const CORBA_SystemException&) {
            // The peer closed, or sent what is no GIOP: the connection ends.
            result = -1;
        }
        if (result == 0 && _stream == s) s->flushRead();
        if (result == 0 && ZEBGlobalTable::is_vex) LinkStream(_stream == s);
    }
    if (result == 0 && ended) result = -1;  // the peer closed after its last whole message
    if (result == 0) {
        s->shrinkInput();
        result = settle(input);
    }
    --_active;
    if (result < 0) delete this;
    return result;
}

int ZEBBOAClient::outputReady(int) {
    ++_active;
    int result = 0;
    try {
        if (_stream->flushQueued() > 0) _outputMoved = monotonicMs();
        result = settle(ZEBIIOPstream::INPUT_PARTIAL);
    } catch (const CORBA_SystemException&) {
        result = -1;
    }
    --_active;
    if (result < 0) delete this;
    return result;
}

int ZEBBOAClient::settle(ZEBIIOPstream::InputState input) {
    if (input == ZEBIIOPstream::INPUT_BAD_VERSION || input == ZEBIIOPstream::INPUT_TOO_BIG) {
        // Another GIOP version, or a size this server will not hold: the
        // client hears so before the close, and nothing is allocated for it.
        try {
            writeMessageError();
            _stream->flushQueued();
        } catch (const CORBA_SystemException&) {
        }
        return -1;
    }
    if (input == ZEBIIOPstream::INPUT_BAD_MAGIC) return -1;
    // A client that does not read its replies is let go past this much.
    if (_stream->queuedBytes() > kMaxQueued) return -1;
    relink();
    armTimer();
    return 0;
}

void ZEBBOAClient::relink() {
    const bool wantWrite = _stream->queuedBytes() > 0;
    if (!_linked || wantWrite == _writeLinked) return;
    // The dispatcher drops a descriptor from every kind of event at once.
    dpDispatcher* d = dpDispatcher::instance();
    d->unlink(_stream->fd());
    d->relink(_stream->fd(), dpDispatcher::ReadMask, this);
    if (wantWrite) {
        d->link(_stream->fd(), dpDispatcher::WriteMask, this);
        if (!_writeLinked) _outputMoved = monotonicMs();
    }
    _writeLinked = wantWrite;
}

long ZEBBOAClient::nextDeadline() const {
    // Departs from the connection's first rule, under which it lived as long
    // as its client kept it open, however little that client did.
    long at = 0;
    auto earliest = [&at](long t) {
        if (!at || t < at) at = t;
    };
    // A request taken by a servant and not answered yet keeps the
    // connection from being idle.
    if (ZEBGlobalTable::boa_idle && _deferred.empty())
        earliest(_lastInput + 1000 * static_cast<long>(ZEBGlobalTable::boa_idle));
    // Bytes past the current message are the start of one not yet whole.
    if (_stream->bufferedBytes() > _stream->messageBytesLeft())
        earliest(_inputMoved + 1000 * kStallSeconds);
    if (_stream->queuedBytes() > 0) earliest(_outputMoved + 1000 * kOutputSeconds);
    return at;
}

void ZEBBOAClient::armTimer() {
    const long at = nextDeadline();
    if (!at || (_timerAt && _timerAt <= at)) return;
    dpDispatcher* d = dpDispatcher::instance();
    if (_timerAt) d->stopTimer(this);
    _timerAt = at;
    const long wait = std::max(0L, at - monotonicMs());
    d->startTimer(wait / 1000, (wait % 1000) * 1000, this);
}

void ZEBBOAClient::timerExpired(long, long) {
    _timerAt = 0;
    const long now = monotonicMs();
    const long at = nextDeadline();
    // Busy on the stack (a request being served, or waiting in it): the
    // connection is not idle, whatever the clock says.
    if (_active > 0 || !at || at > now) {
        if (_active > 0 && at && at <= now) {
            _timerAt = now + 1000;
            dpDispatcher::instance()->startTimer(1, 0, this);
        } else {
            armTimer();
        }
        return;
    }
    delete this;
}

int ZEBBOAClient::processMessage() {
    const IIOP::MessageHeader& h = _stream->msgHeader();
    const bool good = std::memcmp(h.magic, IIOP::MAGIC_WORD, sizeof h.magic) == 0 &&
                      h.iiop_version.major == IIOP::CURRENT_VERSION.major &&
                      h.iiop_version.minor == IIOP::CURRENT_VERSION.minor &&
                      h.message_type < 8;
    if (good) {
        _stream->rewindOutBuffer();
        const IIOP::MessageHeader header = h;
        int result = (this->*_funcArray[header.message_type])(header);
        clearRequestFields();
        return result;
    }
    // A message type this broker does not know: the client hears so in a
    // MessageError before the connection is closed.
    _stream->discardCurMsg();
    try {
        writeMessageError();
    } catch (const CORBA_SystemException&) {
    }
    _stream->close();
    return -1;
}

void ZEBBOAClient::clearRequestFields() {
    _table->current_principal = nullptr;
    CORBA_Object* obj = _table->current_object;
    _table->current_object = nullptr;
    CORBA::release(obj);
    _table->current_connection = nullptr;
}

void ZEBBOAClient::writeMessageError() {
    _stream->newOutEncapsulation();
    _stream->writeMessageHeader(IIOP::MessageError);
    _stream->sendMessage(0);
}

int ZEBBOAClient::sendErrorReply(ZEBBOAClientData& data, const CORBA_SystemException& e) {
    data._reply.reply_status = IIOP::SYSTEM_EXCEPTION;
    try {
        _stream->beginWrite(0);
        _stream->newOutEncapsulation();
        TBostream& out = *_stream;
        out << data._header << data._reply << e;
        _stream->sendMessage(0);
    } catch (const CORBA_SystemException&) {
        return -1;
    }
    return 0;
}

void ZEBBOAClient::replaceStatus(IIOP::ReplyStatusType status, const CORBA_Exception& e) {
    // prepareReply wrote the status last; nothing stands behind it yet.
    _stream->unputULong();
    TBostream& out = *_stream;
    out << static_cast<CORBA::ULong>(status) << e;
}

int ZEBBOAClient::request(const IIOP::MessageHeader&) {
    StreamUnlinker unlinker(this);
    ZEBBOAClientData data(this);
    IIOP::RequestHeader header;
    *_stream >> header;

    _table->current_principal = &header.requesting_principal;
    _table->current_connection = _peer;
    data._reply.request_id = header.request_id;

    SkelRef ref;
    ref.skel = cachedSkeleton(header.object_key);
    if (!ref.skel) {
        std::unique_ptr<ZEBObjectId> id(decodeKey(header.object_key));
        if (!id) {
            if (header.response_expected)
                return sendErrorReply(data, CORBA_INV_OBJREF(0, CORBA::COMPLETED_NO));
            _stream->discardCurMsg();
            return 0;
        }
        ref.skel = _boa->skelAt(*id);
        if (ref.skel && ref.skel->_state == ZEBSkelInfo::SKEL_ACTIVE)
            remember(header.object_key, ref.skel);
    }
    ZEBSkelInfo* skel = ref.skel;
    data._skel = skel;
    if (!skel || skel->_state != ZEBSkelInfo::SKEL_ACTIVE) {
        if (header.response_expected &&
            offerToForwarder(header.object_key, ZEBDeferredReply::REQUEST, header.request_id)) {
            _stream->discardCurMsg();
            return 0;
        }
        if (header.response_expected)
            return sendErrorReply(data, CORBA_OBJECT_NOT_EXIST(0, CORBA::COMPLETED_NO));
        _stream->discardCurMsg();
        return 0;
    }

    const char* op = header.operation.in() ? header.operation.in() : "";
    const bool bindOp = std::strcmp(op, "__bind") == 0 || std::strcmp(op, "__unbind") == 0;
    bool mark = true;
    if (!ZEBGlobalTable::recursion && skel->_busy) {
        if (!bindOp) {
            _stream->discardCurMsg();
            if (header.response_expected)
                return sendErrorReply(data, CORBA_TRANSIENT(0, CORBA::COMPLETED_NO));
            return 0;
        }
        mark = false;
        data._run_hooks = 0;
    }

    data._reply.reply_status = IIOP::NO_EXCEPTION;
    data._with_header = header.response_expected;
    data._byte_order = _stream->msgHeader().byte_order;
    DropMarkClearer clearer(_stream);
    // A request served in a nested dispatch of another may find the outer
    // one's object here; it is let go rather than lost.
    CORBA::release(_table->current_object);
    _table->current_object = CORBA_Object::_duplicate(skel->_object);
    const bool busyMark = !ZEBGlobalTable::recursion && mark;
    if (busyMark) skel->_busy = 1;

    // The servant may take the request and answer it later.
    struct Serving {
        ZEBBOAClientData* saved;
        explicit Serving(ZEBBOAClientData* d) : saved(_serving) { _serving = d; }
        ~Serving() { _serving = saved; }
    } serving(&data);
    try {
        skel->execute(*_stream, header, *_peer, _table, &data);
    } catch (const ZEBReplyDeferred&) {
        if (busyMark) skel->_busy = 0;
        return 0;
    } catch (const CORBA_BAD_OPERATION& e) {
        // Operations in no method table, __bind and __unbind among them.
        if (busyMark) skel->_busy = 0;
        prepareReply(&data);
        if (std::strcmp(op, "__bind") == 0) {
            try {
                bind(skel);
            } catch (const CORBA_SystemException& failure) {
                replaceStatus(IIOP::SYSTEM_EXCEPTION, failure);
                try {
                    _stream->sendMessage(0);
                } catch (const CORBA_SystemException&) {
                    return -1;
                }
            }
        } else if (std::strcmp(op, "__unbind") == 0) {
            try {
                unbind(skel, 0);
            } catch (const CORBA_SystemException&) {
                return -1;
            }
            return 0;  // never answered
        } else if (header.response_expected) {
            replaceStatus(IIOP::SYSTEM_EXCEPTION, e);
        }
        if (header.response_expected) {
            try {
                _stream->sendMessage(0);
            } catch (const CORBA_SystemException&) {
                return -1;
            }
        }
        return 0;
    } catch (const CORBA_UserException& e) {
        if (busyMark) skel->_busy = 0;
        if (!header.response_expected) return 0;
        try {
            prepareReply(&data);
            replaceStatus(IIOP::USER_EXCEPTION, e);
            _stream->sendMessage(0);
        } catch (const CORBA_SystemException&) {
            return -1;
        }
        return skel->_policy == CORBA_CreationImplDef::SERVER_PER_METHOD ? -1 : 0;
    } catch (const CORBA_COMM_FAILURE&) {
        // The reply channel is in doubt: the client gets a failure that
        // says the call may have run.
        if (busyMark) skel->_busy = 0;
        if (!header.response_expected) return 0;
        sendErrorReply(data, CORBA_COMM_FAILURE(9999, CORBA::COMPLETED_MAYBE));
        return -1;
    } catch (const CORBA_SystemException& e) {
        if (busyMark) skel->_busy = 0;
        if (!header.response_expected) return 0;
        sendErrorReply(data, e);
        return -1;
    }
    if (busyMark) skel->_busy = 0;
    if (header.response_expected && !data._prepared) {
        // A oneway operation sent with response_expected: GIOP wants a Reply,
        // so it gets an empty one now that the servant has returned.
        try {
            prepareReply(&data);
            _stream->sendMessage(0);
        } catch (const CORBA_SystemException&) {
            return -1;
        }
    }
    // A per-method server ends the connection after every call.
    return skel->_policy == CORBA_CreationImplDef::SERVER_PER_METHOD ? -1 : 0;
}

ZEBSkelInfo* ZEBBOAClient::cachedSkeleton(const CORBA_OctetSequence& key) {
    if (!_lastSkel || key.length() != _lastKey.length() ||
        std::memcmp(key.get_buffer(), _lastKey.get_buffer(), key.length()) != 0)
        return nullptr;
    // An object that is no longer active sends the request down the full
    // search, which may find another object under the same name. One that
    // left the adapter was taken out of here by releaseImpl.
    if (_lastSkel->_state != ZEBSkelInfo::SKEL_ACTIVE) return nullptr;
    TBResource::ref(_lastSkel);
    return _lastSkel;
}

void ZEBBOAClient::remember(const CORBA_OctetSequence& key, ZEBSkelInfo* skel) {
    TBResource::ref(skel);
    TBResource::unref(_lastSkel);
    _lastSkel = skel;
    _lastKey = key;
}

void ZEBBOAClient::prepareReply(void* p) {
    ZEBBOAClientData* data = static_cast<ZEBBOAClientData*>(p);
    ZEBIIOPstream* s = data->_client->_stream;
    data->_prepared = 1;
    // Departs from the older rule, under which a request without
    // response_expected had its reply body written with no message header:
    // a GIOP client then read stray bytes. The reply is now always a whole
    // message, and one that nobody asked for never leaves the stream.
    if (data->_with_header) {
        if (data->_skel && data->_run_hooks)
            data->_client->_table->sending_reply(data->_skel->_object, data->_reply, *s);
    }
    TBostream& out = *s;
    s->beginWrite(0);
    s->newOutEncapsulation();
    out << data->_header;
    out << data->_reply;
    // A request the servant took is answered through its ZEBDeferredReply
    // alone, whatever the skeleton writes after the servant's return.
    if (!data->_with_header || data->_deferred) s->dropNextMessage();
}

int ZEBBOAClient::locateRequest(const IIOP::MessageHeader&) {
    IIOP::MessageHeader reply;
    fillHeader(reply, IIOP::LocateReply);
    _stream->beginWrite(0);
    IIOP::LocateRequestHeader req;
    try {
        *_stream >> req;
        _stream->flushRead();
    } catch (const CORBA_MARSHAL&) {
        writeMessageError();
        return -1;
    }
    IIOP::LocateReplyHeader lr;
    lr.request_id = req.request_id;
    lr.locate_status = IIOP::UNKNOWN_OBJECT;

    std::unique_ptr<ZEBObjectId> id(decodeKey(req.object_key));
    SkelRef ref;
    if (id) ref.skel = _boa->skelAt(*id);
    ZEBSkelInfo* skel = ref.skel;
    if ((!skel || skel->_state != ZEBSkelInfo::SKEL_ACTIVE) &&
        offerToForwarder(req.object_key, ZEBDeferredReply::LOCATE_REQUEST, req.request_id))
        return 0;

    _stream->rewindOutBuffer();
    _stream->newOutEncapsulation();
    TBostream& out = *_stream;
    if (skel && id->type() != ZEBObjectId::ID_KEY && !skel->isService()) {
        // The same object under its short key: later requests skip the
        // search by name.
        std::unique_ptr<IIOP::ObjectLocator> loc(ZEBSkelInfo::localLocator(ZEBKeyId(skel->_uid)));
        IOP::IOR ior;
        const CORBA_TypeInfo* type = skel->typeInfo();
        ior.type_id = type ? type->repository_id() : "";
        ior.profiles.length(1);
        ior.profiles[0].tag = IOP::TAG_INTERNET_IOP;
        CORBA_OctetSequence_var profile(loc->convert());
        ior.profiles[0].profile_data = *profile.ptr();
        lr.locate_status = IIOP::OBJECT_FORWARD;
        out << reply << lr << ior;
    } else {
        if (skel) lr.locate_status = IIOP::OBJECT_HERE;
        out << reply << lr;
    }
    _stream->sendMessage(0);
    return 0;
}

int ZEBBOAClient::cancelRequest(const IIOP::MessageHeader&) {
    // A request cannot be cancelled once read; the next receiveMessage
    // discards this message's body.
    return 0;
}

int ZEBBOAClient::closeConnection(const IIOP::MessageHeader&) { return -1; }

int ZEBBOAClient::messageError(const IIOP::MessageHeader&) { return -1; }

int ZEBBOAClient::unexpectedMessage(const IIOP::MessageHeader&) {
    _stream->beginWrite(0);
    writeMessageError();
    return 0;
}

int ZEBBOAClient::shmConnectRequest(const IIOP::MessageHeader&) {
    CORBA::ULong request_id = 0;
    CORBA_String_var name;
    *_stream >> request_id;
    *_stream >> name.inout();
    // Shared memory is never granted: the answer's status is always 0.
    _stream->newOutEncapsulation();
    _stream->writeMessageHeader(IIOP::ShmConnectReply);
    TBostream& out = *_stream;
    out << request_id << CORBA::ULong(0);
    _stream->sendMessage(0);
    return 0;
}

void ZEBBOAClient::bind(ZEBSkelInfo* skel) {
    ZEBUniqueId* count = TB_CAST(ZEBUniqueId, _bound.atKey(*skel));
    if (count) {
        DSAssoc* a = _bound.assocAt(*skel);
        ZEBUniqueId* next = new ZEBUniqueId(count->id() + 1);
        TBResource::ref(next);
        TBResource::unref(a->value);
        a->value = next;
    } else {
        _bound.addAssoc(*skel, *new ZEBUniqueId(1));
    }
    ZEBImplEventHandler* handler =
        skel->_impl_handler ? skel->_impl_handler : ZEBGlobalTable::_implEventHandler;
    if (!handler) return;
    CORBA_OctetSequence_var principal;
    if (_table->current_principal) principal = new CORBA_OctetSequence(*_table->current_principal);
    handler->bind(_peer, principal.ptr(), skel->_object);
}

void ZEBBOAClient::unbind(ZEBSkelInfo* skel, unsigned char closing) {
    DSAssoc* a = _bound.assocAt(*skel);
    if (!a) return;
    ZEBUniqueId* count = TB_CAST(ZEBUniqueId, a->value);
    if (count->id() != 1 || closing) {
        // The entry stays, at 0, when the connection's end brings it down.
        ZEBUniqueId* next = new ZEBUniqueId(count->id() ? count->id() - 1 : 0);
        TBResource::ref(next);
        TBResource::unref(a->value);
        a->value = next;
    } else {
        _bound.removeKey(*skel);
    }
    if (isPerConnection(skel->_policy)) _exit_on_close = true;
    if (skel->_state != ZEBSkelInfo::SKEL_ACTIVE) return;
    ZEBImplEventHandler* handler =
        skel->_impl_handler ? skel->_impl_handler : ZEBGlobalTable::_implEventHandler;
    if (!handler) return;
    if (closing) handler->clientGone(_peer, skel->_object);
    else handler->unbind(_peer, skel->_object);
}

void ZEBBOAClient::releaseImpl(const ZEBSkelInfo& skel) {
    _bound.removeKey(skel);
    if (_lastSkel == &skel) remember(CORBA_OctetSequence(), nullptr);
}

std::unique_ptr<ZEBDeferredReply> ZEBBOAClient::takeCurrent() {
    ZEBBOAClientData* data = _serving;
    if (!data || data->_deferred || !data->_with_header) return nullptr;
    data->_deferred = true;
    ZEBBOAClient* client = data->_client;
    std::unique_ptr<ZEBDeferredReply> r(new ZEBDeferredReply(
        client, ZEBDeferredReply::REQUEST, data->_reply.request_id, data->_byte_order));
    client->_deferred.push_back(r.get());
    return r;
}

void ZEBBOAClient::forgetDeferred(ZEBDeferredReply* reply) {
    _deferred.erase(std::remove(_deferred.begin(), _deferred.end(), reply), _deferred.end());
}

bool ZEBBOAClient::sendLater(int type, const std::function<void(TBostream&)>& write) {
    try {
        _stream->beginWrite(0);
        _stream->newOutEncapsulation();
        _stream->writeMessageHeader(static_cast<IIOP::MsgType>(type));
        write(*_stream);
        _stream->sendMessage(0);
    } catch (const CORBA_SystemException&) {
        return false;
    }
    // What the socket did not take waits for write interest; a connection
    // that is serving a request now is linked again when it is done.
    relink();
    armTimer();
    return true;
}

bool ZEBBOAClient::offerToForwarder(const CORBA_OctetSequence& key, int kind,
                                    CORBA::ULong request_id) {
    ZEBKeyForwarder* forwarder = ZEBKeyForwarder::installed();
    if (!forwarder) return false;
    std::unique_ptr<ZEBObjectId> id(decodeKey(key));
    if (!id || id->type() != ZEBObjectId::ID_PERSISTENT) return false;
    const ZEBPersistentId& p = static_cast<const ZEBPersistentId&>(*id);
    std::unique_ptr<ZEBDeferredReply> reply(
        new ZEBDeferredReply(this, static_cast<ZEBDeferredReply::Kind>(kind), request_id,
                             _stream->msgHeader().byte_order));
    _deferred.push_back(reply.get());
    return forwarder->forward(p.interface_name(), p.object_name(), reply);
}
