// Dynamic requests: marshalling the arguments and the context, the
// synchronous call, and what the reference and the ORB offer to make and
// run requests.
#include "request.h"

#include "any.h"
#include "context.h"
#include "mstrm.h"
#include "object.h"
#include "orb.h"
#include "zebglob.h"
#include "zebreq.h"

CORBA_Request::CORBA_Request(CORBA_Object* target, const char* operation)
    : CORBA_Request(target, nullptr, operation, nullptr, nullptr, 0) {}

CORBA_Request::CORBA_Request(CORBA_Object* target, CORBA_Context* ctx, const char* operation,
                             CORBA_NVList* arguments, CORBA_NamedValue* result, CORBA::Flags flags)
    : _target(CORBA_Object::_duplicate(target)),
      _operation(CORBA::strdup(operation)),
      _arguments(arguments ? CORBA_NVList::_duplicate(arguments) : new CORBA_NVList(16)),
      _result(result ? CORBA_NamedValue::_duplicate(result) : new CORBA_NamedValue),
      _environment(new CORBA_Environment),
      _context(CORBA_Context::_duplicate(ctx)),
      _flags(flags),
      _refcount(1),
      _has_out_args(0) {}

CORBA_Request::~CORBA_Request() {
    CORBA::release(_context);
    delete _environment;
    CORBA::release(_result);
    CORBA::release(_arguments);
    CORBA::string_free(_operation);
    CORBA::release(_target);
}

void CORBA_Request::send_deferred() {}
void CORBA_Request::get_response() {}
CORBA::Boolean CORBA_Request::poll_response() { return 0; }

CORBA_Request* CORBA_Request::_duplicate(CORBA_Request* r) {
    if (r) r->_ref();
    return r;
}

void CORBA::release(CORBA_Request* r) {
    if (r && r->_deref() <= 0) delete r;
}

void CORBA_Request::ctx(CORBA_Context* c) {
    CORBA_Context* held = CORBA_Context::_duplicate(c);
    CORBA::release(_context);
    _context = held;
}

CORBA_Any& CORBA_Request::addArg(const char* name, CORBA::Flags flags) {
    // The list keeps the item alive; the reference add gave is not needed.
    CORBA_NamedValue_var nv(_arguments->add_item(name, flags));
    return *nv->value();
}

CORBA_Any& CORBA_Request::add_in_arg(const char* name) { return addArg(name, CORBA::ARG_IN); }
CORBA_Any& CORBA_Request::add_inout_arg(const char* name) { return addArg(name, CORBA::ARG_INOUT); }
CORBA_Any& CORBA_Request::add_out_arg(const char* name) { return addArg(name, CORBA::ARG_OUT); }

GIOPstream* CORBA_Request::_marshal_out(unsigned char response_expected) {
    GIOPstream* strm = _target->_create_request(_operation, response_expected, 0);
    TBostream& out = *strm;
    _has_out_args = 0;
    try {
        for (CORBA::ULong i = 0; i < _arguments->count(); ++i) {
            CORBA_NamedValue_var nv(_arguments->item(i));
            if (nv->flags() & CORBA::ARG_OUT) {
                _has_out_args = 1;
                // A one-way request has nobody to hand results to.
                if (!response_expected) throw CORBA_BAD_PARAM(0, CORBA::COMPLETED_NO);
            }
            if (nv->flags() & CORBA::ARG_IN) nv->value()->write_value(out);
        }
        if (_context) out << _context;
    } catch (const CORBA_Exception&) {
        // The message is left unsent; the next request starts a new one.
        strm->flushRead();
        throw;
    }
    return strm;
}

void CORBA_Request::_marshal_in(CORBA_MarshalStream* strm) {
    TBistream& in = *strm;
    CORBA_Any* result = _result->value();
    const CORBA::TCKind kind = result->kind();
    if (kind != CORBA::tk_null && kind != CORBA::tk_void) result->read_value(in, result->type());
    if (_has_out_args) {
        for (CORBA::ULong i = 0; i < _arguments->count(); ++i) {
            CORBA_NamedValue_var nv(_arguments->item(i));
            if (nv->flags() & CORBA::ARG_OUT) nv->value()->read_value(in, nv->value()->type());
        }
    }
    strm->flushRead();
}

void CORBA_Request::_invoke(unsigned char response_expected) {
    _environment->clear();
    GIOPstream* strm = nullptr;
    // A busy or restarted server (CORBA_TRANSIENT) gets the whole request
    // again, for as long as it answers so.
    for (;;) {
        strm = _marshal_out(response_expected);
        try {
            if (response_expected)
                strm = _target->_invoke();
            else
                _target->_send();
            break;
        } catch (const CORBA_TRANSIENT&) {
            continue;
        } catch (const CORBA_SystemException&) {
            throw;
        } catch (const CORBA_Exception& e) {
            // A user exception is an answer: the caller finds it here.
            _environment->exception(e._deep_copy());
            return;
        }
    }
    if (!response_expected) {
        strm->flushRead();
        return;
    }
    try {
        _marshal_in(strm);
    } catch (const CORBA_SystemException&) {
        strm->flushRead();
        throw;
    }
}

// ---- Requests made by a reference.

CORBA_Request* CORBA_Object::_request(const char* operation) {
    return new ZEBRequest(this, operation);
}

void CORBA_Object::_create_request(CORBA_Context* ctx, const char* operation,
                                   CORBA_NVList* arguments, CORBA_NamedValue* result,
                                   CORBA_Request*& request, CORBA::ULong flags) {
    request = new ZEBRequest(this, ctx, operation, arguments, result, flags);
}

// ---- The ORB's operations on requests.

void CORBA_ORB::create_list(CORBA::Long count, CORBA_NVList*& list) {
    list = new CORBA_NVList(count > 0 ? static_cast<CORBA::ULong>(count) : 0);
    for (CORBA::Long i = 0; i < count; ++i) CORBA::release(list->add(0));
}

void CORBA_ORB::get_default_context(CORBA_Context*& ctx) {
    if (!ZEBGlobalTable::context()) {
        CORBA_Context* made = new CORBA_Context;
        ZEBGlobalTable::context(made);
        CORBA::release(made);
    }
    ctx = CORBA_Context::_duplicate(ZEBGlobalTable::context());
}

void CORBA_ORB::send_multiple_requests_oneway(const CORBA_RequestSeq& requests) {
    for (CORBA::ULong i = 0; i < requests.length(); ++i) requests[i]->_invoke(0);
}

void CORBA_ORB::send_multiple_requests_deferred(const CORBA_RequestSeq& requests) {
    for (CORBA::ULong i = 0; i < requests.length(); ++i) requests[i]->send_deferred();
}

CORBA::Boolean CORBA_ORB::poll_next_response() { return ZEBRequest::poll_next_response(); }

void CORBA_ORB::get_next_response(CORBA_Request*& request) {
    ZEBRequest::get_next_response(request);
}
