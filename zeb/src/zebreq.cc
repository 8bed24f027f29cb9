// Deferred dynamic requests: the set of those sent and not yet collected,
// the waits that collect them, and the hand-over of their replies from
// whoever reads them. A deferred request never reads its own reply: it
// sits in the set until a reader of its connection offers it.
#include "zebreq.h"

#include <sys/time.h>

#include <vector>

#include "dispatch.h"
#include "dsassoc.h"
#include "dsset.h"
#include "except.h"
#include "giop.h"
#include "mstrm.h"
#include "object.h"
#include "zebglob.h"
#include "zeboclnt.h"
#include "zebstrm.h"
#include "zebstub.h"

// The pending requests at one moment, each with a reference held, so that
// a walk that sends or runs the dispatcher survives a member's release.
class ZEBRequest::Members {
public:
    Members() {
        DSIterator it(pending());
        while (DSWrapper* w = TB_CAST(DSWrapper, it.next())) {
            ZEBRequest* r = static_cast<ZEBRequest*>(w->value);
            r->_ref();
            _list.push_back(r);
        }
    }
    ~Members() {
        for (ZEBRequest* r : _list) CORBA::release(r);
    }
    Members(const Members&) = delete;
    Members& operator=(const Members&) = delete;
    const std::vector<ZEBRequest*>& list() const { return _list; }

private:
    std::vector<ZEBRequest*> _list;
};

DSSet& ZEBRequest::pending() {
    // Never destroyed: a request released during exit still leaves it.
    static DSSet* set = new DSSet(16);
    return *set;
}

ZEBRequest::~ZEBRequest() { leave(); }

void ZEBRequest::enter() {
    DSWrapper* w = new DSWrapper(this);
    TBResource::ref(w);
    pending().add(*w);
    TBResource::unref(w);
}

// Harmless when the request is not in the set. Lets go of the connection.
void ZEBRequest::leave() {
    DSWrapper key(this);
    pending().remove(key);
    if (_conn) {
        _conn->deferred(-1);
        ZEBORBClient::release(_conn);
        _conn = nullptr;
    }
}

bool ZEBRequest::connectionLost() const {
    return !_conn || _conn->closing() || !_conn->stream()->open();
}

void ZEBRequest::collect() {
    leave();
    _state = IDLE;
}

void ZEBRequest::resend() {
    collect();
    send_deferred();
}

void ZEBRequest::send_deferred() {
    _environment->clear();
    _marshal_out(1);
    ZEBStubInfo* stub = _target->_stub();
    stub->send(0);
    _request_id = stub->requestId();
    // The request holds the connection it went out on (a spare, if a call
    // waited on the bound one): its closing is what sends the request again.
    ZEBORBClient* conn = stub->lastClient();
    ZEBORBClient::duplicate(conn);
    conn->deferred(1);
    if (_conn) {
        _conn->deferred(-1);
        ZEBORBClient::release(_conn);
    }
    _conn = conn;
    if (_state != PENDING) {
        enter();
        _state = PENDING;
    }
}

void ZEBRequest::get_response() {
    if (_state != PENDING && _state != DONE) throw CORBA_BAD_INV_ORDER(0, CORBA::COMPLETED_NO);
    CORBA_Request_var self(_duplicate(this));
    dpDispatcher* d = dpDispatcher::instance();
    while (_state == PENDING) {
        d->dispatch();
        // A lost connection is a quiet resend, on a new one.
        if (_state == PENDING && connectionLost()) resend();
    }
    collect();
}

CORBA::Boolean ZEBRequest::poll_response() {
    if (_state == DONE) return 1;
    if (_state != PENDING) throw CORBA_BAD_INV_ORDER(0, CORBA::COMPLETED_NO);
    CORBA_Request_var self(_duplicate(this));
    timeval t = {0, 1};
    dpDispatcher::instance()->dispatch(&t);
    return _state == DONE;
}

CORBA::Boolean ZEBRequest::poll_next_response() {
    Members members;
    for (ZEBRequest* r : members.list())
        if (r->_state == PENDING || r->_state == DONE)
            if (r->poll_response()) return 1;
    return 0;
}

void ZEBRequest::get_next_response(CORBA_Request*& request) {
    request = nullptr;
    for (bool first = true;; first = false) {
        if (pending().size() == 0) return;
        if (!first) {
            dpDispatcher::instance()->dispatch();
            Members members;
            for (ZEBRequest* r : members.list())
                if (r->_state == PENDING && r->connectionLost()) r->_state = LOST;
        }
        Members members;
        for (ZEBRequest* r : members.list()) {
            if (r->_state == DONE) {
                request = _duplicate(r);
                r->collect();
                return;
            }
            if (r->_state == LOST) r->resend();
        }
    }
}

CORBA::Boolean ZEBRequest::receive_reply(IIOP::ReplyHeader& reply, CORBA_MarshalStream& strm) {
    if (_state != PENDING || reply.request_id != _request_id) return 0;
    _state = DONE;
    try {
        if (reply.reply_status == IIOP::NO_EXCEPTION) {
            if (GIOPstream* g = dynamic_cast<GIOPstream*>(&strm))
                ZEBGlobalTable::instance()->received_reply(_target, reply, *g);
            _marshal_in(&strm);
        } else {
            // Read as a call reads it; a user exception of no class linked
            // here keeps its id.
            storeException(
                ZEBreadReplyException(strm, reply.reply_status == IIOP::SYSTEM_EXCEPTION));
            strm.flushRead();
        }
    } catch (const CORBA_SystemException& e) {
        // A reply that does not read ends the request all the same: the
        // caller finds why in the environment.
        strm.flushRead();
        storeException(e._deep_copy());
    }
    return 1;
}

void ZEBRequest::storeException(CORBA_Exception* e) {
    CORBA_Environment* env = new CORBA_Environment;
    env->exception(e);
    delete _environment;
    _environment = env;
}

CORBA::Boolean ZEBRequest::consume(IIOP::ReplyHeader& reply, CORBA_MarshalStream& strm) {
    Members members;
    for (ZEBRequest* r : members.list())
        if (r->receive_reply(reply, strm)) return 1;
    return 0;
}

void ZEBRequest::exception(CORBA_Object* obj, const CORBA_Exception& e) {
    Members members;
    for (ZEBRequest* r : members.list()) {
        // A reply already in stays what the caller gets.
        if (r->_target != obj || r->_state == DONE) continue;
        r->_state = DONE;
        r->storeException(e._deep_copy());
        return;
    }
}
