// The ORB object: initialisation, stringified references, binding by names
// and the initial services.
#ifndef KELVANOR_ORB_H
#define KELVANOR_ORB_H

#include <kelvanor/corba.h>
#include <kelvanor/object.h>
#include <kelvanor/sequence.h>

class CORBA_BOA;
class CORBA_Context;
class CORBA_NVList;
class CORBA_ORB;
class CORBA_Request;
class CORBA_RequestSeq;
class ZEBResolverImpl;

class CORBA_ORB {
public:
    // Names of the initial services.
    class ObjectIdList : public CORBA_StringSequence {
    public:
        using CORBA_StringSequence::CORBA_StringSequence;
    };

    virtual ~CORBA_ORB();

    // "IOR:" and the hexadecimal of the encapsulated IOR; for null the nil
    // IOR. The caller frees the text with CORBA::string_free.
    char* object_to_string(CORBA_Object* obj);
    // Nil (null), after a line on standard output, for text without the
    // "IOR:" prefix; nil for an IOR without profiles; CORBA_MARSHAL for
    // hexadecimal that does not decode.
    CORBA_Object* string_to_object(const char* text);

    // The object adapter; id must be null or "ZEB_BOA".
    CORBA_BOA* BOA_init(int& argc, char* const* argv, const char* boa_id = nullptr);
    // A stub bound by names.
    CORBA_Object* bind(const char* interface_name, const char* object_name = nullptr,
                       const char* host = nullptr, const CORBA_BindOptions* options = nullptr);

    ObjectIdList* list_initial_services();
    CORBA_Object* resolve_initial_references(const char* id);

    // ---- Dynamic invocation.

    // A new list (the caller releases it) of count items without names,
    // flags 0 and empty values.
    void create_list(CORBA::Long count, CORBA_NVList*& list);
    // The process's default context, made empty and unnamed on first use;
    // the caller releases its reference.
    void get_default_context(CORBA_Context*& ctx);
    // Each request in order, as a one-way request / as a deferred one.
    void send_multiple_requests_oneway(const CORBA_RequestSeq& requests);
    void send_multiple_requests_deferred(const CORBA_RequestSeq& requests);
    // Whether a deferred request has its reply; a short round of the
    // dispatcher per pending request.
    CORBA::Boolean poll_next_response();
    // Waits for the next answered deferred request and gives it with a
    // reference for the caller; null at once when none is pending.
    void get_next_response(CORBA_Request*& request);

protected:
    CORBA_ORB() = default;
};

namespace CORBA {
typedef CORBA_ORB* ORB_ptr;
typedef CORBA_BOA* BOA_ptr;
// Parses the broker's options out of argv (on every call) and gives the
// ORB object. orb_id must be null or "Internet ORB".
CORBA_ORB* ORB_init(int& argc, char* const* argv, const char* orb_id = nullptr);
}  // namespace CORBA

// A service that programs find by name through resolve_initial_references.
// Constructing one enters it in the process's list; destroying it takes it
// out.
class ZEBResolver {
public:
    explicit ZEBResolver(const char* name);
    virtual ~ZEBResolver();
    ZEBResolver(const ZEBResolver&) = delete;
    ZEBResolver& operator=(const ZEBResolver&) = delete;

    // The service's object, a new reference; null here.
    virtual CORBA_Object* resolve();

    // The object of the service named name (null counts as ""), or null.
    static CORBA_Object* resolve(const char* name);
    static CORBA_ORB::ObjectIdList* list_services();

private:
    ZEBResolverImpl* _impl;
};

#endif
