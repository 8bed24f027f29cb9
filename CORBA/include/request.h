// Dynamic requests: a target, an operation, a list of arguments and a
// result, built at run time instead of through a generated stub. The
// deferred forms (send now, collect later) are ZEBRequest's (zebreq.h).
#ifndef KELVANOR_REQUEST_H
#define KELVANOR_REQUEST_H

#include <kelvanor/corba.h>
#include <kelvanor/except.h>
#include <kelvanor/nvlist.h>
#include <kelvanor/zebseq.h>

class CORBA_Context;
class CORBA_MarshalStream;
class CORBA_Object;
class GIOPstream;

// Reference counted: a new request has one reference, CORBA::release drops
// one and deletes at zero.
class CORBA_Request {
public:
    // A request of no arguments, as yet, whose result is an empty Any.
    CORBA_Request(CORBA_Object* target, const char* operation);
    // Takes a reference to each of ctx, arguments and result that is not
    // null; a null arguments or result gets a new one as above.
    CORBA_Request(CORBA_Object* target, CORBA_Context* ctx, const char* operation,
                  CORBA_NVList* arguments, CORBA_NamedValue* result, CORBA::Flags flags);
    CORBA_Request(const CORBA_Request&) = delete;
    CORBA_Request& operator=(const CORBA_Request&) = delete;

    // The deferred forms; here they do nothing (false from poll_response).
    virtual void send_deferred();
    virtual void get_response();
    virtual CORBA::Boolean poll_response();
    virtual ~CORBA_Request();
    // Sends the request, and with response_expected reads the result and
    // the out arguments into their Anys. A user exception of the server
    // lands in env(); a system exception is thrown. CORBA_TRANSIENT sends
    // the whole request again, as often as it comes.
    virtual void _invoke(unsigned char response_expected);
    // Starts the message on the target's connection and writes the in
    // arguments and the context; the stream is returned unsent. An out
    // argument on a request without a response is CORBA_BAD_PARAM, a
    // context value that is not a string CORBA_BAD_CONTEXT; nothing goes
    // out then.
    virtual GIOPstream* _marshal_out(unsigned char response_expected);
    // Reads the result and the out arguments by the TypeCodes their Anys
    // hold.
    virtual void _marshal_in(CORBA_MarshalStream* strm);

    void invoke() { _invoke(1); }
    void send_oneway() { _invoke(0); }

    // Not counted for the caller.
    CORBA_Object* target() const { return _target; }
    const char* operation() const { return _operation; }
    CORBA_NVList* arguments() const { return _arguments; }
    CORBA_NamedValue* result() const { return _result; }
    CORBA_Environment* env() const { return _environment; }
    CORBA_Context* ctx() const { return _context; }
    void ctx(CORBA_Context* c);  // takes a reference to c
    CORBA::Flags flags() const { return _flags; }
    // Appends an argument: an Any for the caller to fill (in) or to read
    // after the call (out, inout).
    CORBA_Any& add_in_arg(const char* name = nullptr);
    CORBA_Any& add_inout_arg(const char* name = nullptr);
    CORBA_Any& add_out_arg(const char* name = nullptr);
    // The Any of the result: set its type before the call to have it read.
    CORBA_Any& return_value() { return *_result->value(); }

    static CORBA_Request* _duplicate(CORBA_Request* r);  // null stays null
    void _ref() { ++_refcount; }
    CORBA::Long _deref() { return --_refcount; }

protected:
    CORBA_Any& addArg(const char* name, CORBA::Flags flags);

    CORBA_Object* _target;            // a duplicate
    char* _operation;                 // from CORBA::strdup
    CORBA_NVList* _arguments;         // counted
    CORBA_NamedValue* _result;        // counted
    CORBA_Environment* _environment;  // owned; never null
    CORBA_Context* _context;          // counted, or null
    CORBA::Flags _flags;
    CORBA::Long _refcount;
    unsigned char _has_out_args;  // set by _marshal_out
};

namespace CORBA {
void release(CORBA_Request* r);  // one reference less; null is ignored
inline Boolean is_nil(const CORBA_Request* r) { return r == nullptr; }
}  // namespace CORBA

// Owns one reference to a request.
class CORBA_Request_var {
public:
    CORBA_Request_var(CORBA_Request* p = nullptr) : _ptr(p) {}
    ~CORBA_Request_var() { CORBA::release(_ptr); }
    CORBA_Request_var(const CORBA_Request_var&) = delete;
    CORBA_Request_var& operator=(const CORBA_Request_var&) = delete;
    CORBA_Request_var& operator=(CORBA_Request* p) {
        CORBA::release(_ptr);
        _ptr = p;
        return *this;
    }
    CORBA_Request* operator->() const { return _ptr; }
    operator CORBA_Request*() const { return _ptr; }
    CORBA_Request* in() const { return _ptr; }
    // For an operation that gives a request through a reference.
    CORBA_Request*& out() {
        *this = nullptr;
        return _ptr;
    }

private:
    CORBA_Request* _ptr;
};

// Requests, for the ORB's operations on many at once. The sequence holds
// the pointers only: the requests stay the caller's.
class CORBA_RequestSeq : public ZEBSequence<CORBA_Request*> {
public:
    using ZEBSequence<CORBA_Request*>::ZEBSequence;
};

#endif
