// The server side record of one object: its unique id, state, name, key and
// implementation record, and the last step of a request before the servant,
// execute(), which finds the method through the type's method tables.
#ifndef KELVANOR_ZEBSKEL_H
#define KELVANOR_ZEBSKEL_H

#include <kelvanor/corba.h>
#include <kelvanor/object.h>
#include <kelvanor/tbresrc.h>
#include <kelvanor/zebstring.h>
#include <kelvanor/zebtype.h>

class CORBA_ImplementationDef;
class GIOPstream;
class ZEBGlobalTable;
class ZEBImplEventHandler;
namespace IIOP {
struct ObjectLocator;
struct RequestHeader;
}  // namespace IIOP
namespace ZEB_EXT {
struct ConnectionInfo;
}

class ZEBSkelInfo : public DSResource {
    TB_DECLARE_CLASS(ZEBSkelInfo);

public:
    enum State : CORBA::ULong { SKEL_INACTIVE = 0, SKEL_ACTIVE = 1, SKEL_DEACTIVATED = 2 };

    // The skeleton of a local object; enters the object adapter's table.
    explicit ZEBSkelInfo(CORBA_Object* object, const char* name = nullptr);
    // A skeleton of a service with no object yet (copies def).
    explicit ZEBSkelInfo(CORBA_ImplementationDef* def);
    // Empty, and in no table.
    explicit ZEBSkelInfo(TBistream& strm);
    ~ZEBSkelInfo() override;

    void write(TBostream&) const override {}
    void prettyPrint(TBostream&) const override {}
    unsigned hash() const override;
    int compare(const TBObject& other) const override;

    // Runs the request whose header has been read from strm: finds the
    // method, narrows the servant, calls it. Throws CORBA_NO_IMPLEMENT
    // (minor 1) when not active, CORBA_INTERNAL, CORBA_OBJ_ADAPTER and
    // CORBA_BAD_OPERATION (the message body discarded) as their tables say.
    void execute(GIOPstream& strm, IIOP::RequestHeader& header,
                 const ZEB_EXT::ConnectionInfo& peer, ZEBGlobalTable* table, void* reply);

    // The stringified reference, made once.
    const char* ior();
    // Host, port and key of this object, made once; owned by the skeleton.
    IIOP::ObjectLocator* locator();
    // The type of the object, or of the implementation's interface.
    const CORBA_TypeInfo* typeInfo();
    // With a record already: takes def's id only. Without: a copy of def.
    // A creation definition also sets the policy.
    void implementation(CORBA_ImplementationDef* def);
    // Leaves the object adapter and drops the skeleton's own reference.
    void release();
    // Tells the activator of a service object that the object goes.
    void deactivate();

    // A new locator at this process's adapter, with the key of id; the
    // caller owns it.
    static IIOP::ObjectLocator* localLocator(const class ZEBObjectId& id);

    // The object name: the record's if there is one, else the skeleton's.
    const char* objectName() const;
    // The record's interface name is "*": an object of a service.
    bool isService() const;

    CORBA_Object* _object = nullptr;  // the servant; null until activated
    ZEBString _name;
    CORBA::ULong _uid = 0;
    CORBA::ULong _created = 0;
    ZEBImplEventHandler* _impl_handler = nullptr;
    CORBA::ULong _state = SKEL_INACTIVE;
    IIOP::ObjectLocator* _locator = nullptr;  // owned
    CORBA_ImplementationDef* _impl = nullptr;  // owned
    CORBA::ULong _scope = 0;
    const CORBA_TypeInfo* _type_info = nullptr;
    CORBA::ULong _policy = 0;  // CORBA_CreationImplDef::Policy
    ZEBString _ior;
    // Cache of the last dispatch: one strcmp for a run of one operation.
    ZEBString _last_op;
    void* _last_servant = nullptr;
    ZEBMethod _last_method = nullptr;
    unsigned char _busy = 0;  // a request runs here and recursion is off

private:
    void enter();
};

// The object of a service that has no object of its own: a local object of
// the type CORBA::Object, so only the built-in operations answer.
class __ServiceSkeleton : public CORBA_Object {
public:
    static CORBA_Object* instance();

private:
    __ServiceSkeleton();
};

#endif
