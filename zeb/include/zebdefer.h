// Answers that a servant gives after its call has returned: the request is
// taken from the connection with what its reply needs (the connection, the
// request id, the byte order it came in), the skeleton sends nothing, and the
// reply goes out later from wherever the servant's owner learns the answer.
// Also the adapter's hook for keys of objects it does not hold, whose
// requests may be forwarded elsewhere, now or later.
#ifndef KELVANOR_ZEBDEFER_H
#define KELVANOR_ZEBDEFER_H

#include <functional>
#include <memory>

#include <kelvanor/corba.h>

class CORBA_Exception;
class CORBA_Object;
class TBostream;
class ZEBBOAClient;
struct ZEBBOAClientData;

// Thrown by a servant that has taken its request with ZEBDeferredReply::take:
// the connection sends no reply for it now. Not a CORBA exception, so that
// nothing on the way catches it as one.
struct ZEBReplyDeferred {};

class ZEBDeferredReply {
public:
    enum Kind { REQUEST, LOCATE_REQUEST };

    // The request the servant is running in, taken off its connection; the
    // caller owns the result and must then throw ZEBReplyDeferred. Null
    // outside a servant call, or for a request without response_expected.
    static std::unique_ptr<ZEBDeferredReply> take();

    ~ZEBDeferredReply();
    ZEBDeferredReply(const ZEBDeferredReply&) = delete;
    ZEBDeferredReply& operator=(const ZEBDeferredReply&) = delete;

    Kind kind() const { return _kind; }
    CORBA::ULong requestId() const { return _request_id; }
    // The byte order of the request (1 little-endian); replies are written
    // in ours, which their header tells.
    CORBA::Octet byteOrder() const { return _byte_order; }
    // False once the connection has ended or the answer has been sent.
    bool pending() const { return _client != nullptr; }

    // Each sends the one answer, and is a no-op after the first or once the
    // connection has gone; false then, or if the write failed (the
    // connection finds out at its next read). A LocateRequest is forwarded,
    // told UNKNOWN_OBJECT for CORBA_OBJECT_NOT_EXIST, and OBJECT_HERE for
    // any other exception, so that the request itself comes and hears it.
    // NO_EXCEPTION with the body that `body` writes.
    bool reply(const std::function<void(TBostream&)>& body);
    // USER_EXCEPTION or SYSTEM_EXCEPTION with e.
    bool raise(const CORBA_Exception& e);
    // LOCATION_FORWARD, or OBJECT_FORWARD to a LocateRequest, to target.
    bool forward(CORBA_Object* target);

private:
    friend class ZEBBOAClient;
    ZEBDeferredReply(ZEBBOAClient* client, Kind kind, CORBA::ULong id, CORBA::Octet order);
    // The connection ends: every answer still owed goes nowhere.
    void detach() { _client = nullptr; }
    // A message of GIOP type `type` whose body `write` writes.
    bool send(int type, const std::function<void(TBostream&)>& write);

    ZEBBOAClient* _client;  // null once answered or the connection ended
    Kind _kind;
    CORBA::ULong _request_id;
    CORBA::Octet _byte_order;
};

// Asked by the adapter about a persistent key for which it holds no active
// object. A forwarder that takes the request owns `reply` and answers it,
// at once or later; one that returns false leaves the adapter to answer
// OBJECT_NOT_EXIST (UNKNOWN_OBJECT to a LocateRequest) and reply is freed.
class ZEBKeyForwarder {
public:
    virtual ~ZEBKeyForwarder();
    virtual bool forward(const char* interface_name, const char* object_name,
                         std::unique_ptr<ZEBDeferredReply>& reply) = 0;

    // The process's one forwarder, not owned; null (the default) for none.
    static void install(ZEBKeyForwarder* f) { _installed = f; }
    static ZEBKeyForwarder* installed() { return _installed; }

private:
    static ZEBKeyForwarder* _installed;
};

#endif
