// The broker's dynamic request: CORBA_Request with the deferred forms. A
// deferred request is sent at once and waits in a process-wide set until
// its reply comes in; whoever reads that reply (a call waiting on the same
// connection, the dispatcher, a spare connection's reader) hands it over
// through consume.
#ifndef KELVANOR_ZEBREQ_H
#define KELVANOR_ZEBREQ_H

#include <kelvanor/request.h>

class CORBA_Exception;
class DSSet;
class ZEBORBClient;
namespace IIOP {
struct ReplyHeader;
}

class ZEBRequest : public CORBA_Request {
public:
    enum State : CORBA::ULong {
        IDLE = 0,     // not sent, or collected
        PENDING = 1,  // sent, waiting for the reply
        DONE = 2,     // the reply is in and unmarshalled (or its exception)
        LOST = 3      // the connection went away while waiting
    };

    using CORBA_Request::CORBA_Request;
    // Leaves the set of pending requests, if it is there.
    ~ZEBRequest() override;

    // Sends and enters the set; the request keeps a hold on the connection
    // it went out on. Failures of the send are thrown as a call's are.
    void send_deferred() override;
    // Runs the dispatcher until the reply is in; a lost connection sends
    // the request again. CORBA_BAD_INV_ORDER unless the request was sent.
    void get_response() override;
    // One short round of the dispatcher, then whether the reply is in.
    // CORBA_BAD_INV_ORDER unless the request was sent.
    CORBA::Boolean poll_response() override;

    CORBA::ULong state() const { return _state; }

    // Whether any pending request has its reply (one short round each).
    static CORBA::Boolean poll_next_response();
    // Waits until some pending request has its reply and gives it, with a
    // reference for the caller; null at once when none is pending.
    static void get_next_response(CORBA_Request*& request);

    // Takes the reply if it is this request's: a pending request and the id
    // it was sent with. Reads the result, or the exception into env().
    CORBA::Boolean receive_reply(IIOP::ReplyHeader& reply, CORBA_MarshalStream& strm);
    // Offers a reply no call waits for to each pending request; false if
    // none took it.
    static CORBA::Boolean consume(IIOP::ReplyHeader& reply, CORBA_MarshalStream& strm);
    // Ends the first pending request of obj with a copy of e in its
    // environment.
    static void exception(CORBA_Object* obj, const CORBA_Exception& e);

private:
    class Members;
    static DSSet& pending();
    void enter();
    void leave();
    bool connectionLost() const;
    // Collecting: out of the set, state IDLE.
    void collect();
    void resend();
    void storeException(CORBA_Exception* e);

    CORBA::ULong _state = IDLE;
    CORBA::ULong _request_id = 0;  // of the deferred send
    // The connection of the deferred send, counted while PENDING or LOST:
    // its closing is what makes the request go again.
    ZEBORBClient* _conn = nullptr;
};

#endif
