// Replies sent after the servant's return: the Reply or LocateReply of a
// request that a servant (or the adapter's key forwarder) took off its
// connection, written as one whole message when the answer is known.
#include "zebdefer.h"

#include "except.h"
#include "giop.h"
#include "object.h"
#include "zebbclnt.h"
#include "zebglob.h"

ZEBKeyForwarder* ZEBKeyForwarder::_installed = nullptr;

ZEBKeyForwarder::~ZEBKeyForwarder() {}

std::unique_ptr<ZEBDeferredReply> ZEBDeferredReply::take() { return ZEBBOAClient::takeCurrent(); }

ZEBDeferredReply::ZEBDeferredReply(ZEBBOAClient* client, Kind kind, CORBA::ULong id,
                                   CORBA::Octet order)
    : _client(client), _kind(kind), _request_id(id), _byte_order(order) {}

ZEBDeferredReply::~ZEBDeferredReply() {
    // Never answered: the client waits until its connection ends, as it
    // would for a servant that never returns.
    if (_client) _client->forgetDeferred(this);
}

bool ZEBDeferredReply::send(int type, const std::function<void(TBostream&)>& write) {
    ZEBBOAClient* client = _client;
    if (!client) return false;
    client->forgetDeferred(this);
    _client = nullptr;
    return client->sendLater(type, write);
}

bool ZEBDeferredReply::reply(const std::function<void(TBostream&)>& body) {
    if (_kind == LOCATE_REQUEST) return false;
    return send(IIOP::Reply, [&](TBostream& out) {
        IIOP::ReplyHeader r;
        r.request_id = _request_id;
        r.reply_status = IIOP::NO_EXCEPTION;
        out << r;
        body(out);
    });
}

bool ZEBDeferredReply::raise(const CORBA_Exception& e) {
    return send(_kind == LOCATE_REQUEST ? IIOP::LocateReply : IIOP::Reply, [&](TBostream& out) {
        if (_kind == LOCATE_REQUEST) {
            // A LocateReply carries no exception: any failure other than
            // a missing object lets the request come, to hear it itself.
            IIOP::LocateReplyHeader lr;
            lr.request_id = _request_id;
            lr.locate_status = dynamic_cast<const CORBA_OBJECT_NOT_EXIST*>(&e)
                                   ? IIOP::UNKNOWN_OBJECT
                                   : IIOP::OBJECT_HERE;
            out << lr;
            return;
        }
        IIOP::ReplyHeader r;
        r.request_id = _request_id;
        r.reply_status = dynamic_cast<const CORBA_SystemException*>(&e) ? IIOP::SYSTEM_EXCEPTION
                                                                         : IIOP::USER_EXCEPTION;
        out << r << e;
    });
}

bool ZEBDeferredReply::forward(CORBA_Object* target) {
    std::unique_ptr<IOP::IOR> ior(target ? ZEBGlobalTable::getIOR(target) : nullptr);
    if (!ior) return raise(CORBA_OBJECT_NOT_EXIST(0, CORBA::COMPLETED_NO));
    return send(_kind == LOCATE_REQUEST ? IIOP::LocateReply : IIOP::Reply, [&](TBostream& out) {
        if (_kind == LOCATE_REQUEST) {
            IIOP::LocateReplyHeader lr;
            lr.request_id = _request_id;
            lr.locate_status = IIOP::OBJECT_FORWARD;
            out << lr << *ior;
            return;
        }
        IIOP::ReplyHeader r;
        r.request_id = _request_id;
        r.reply_status = IIOP::LOCATION_FORWARD;
        out << r << *ior;
    });
}
