// The object adapter of a process: the listening socket, the tables that
// turn object keys into skeletons, the reports of new objects to the
// activation daemon and the directory agent, and the server loop.
#ifndef KELVANOR_ZEBBOA_H
#define KELVANOR_ZEBBOA_H

#include <kelvanor/boa.h>
#include <kelvanor/dsdict.h>
#include <kelvanor/iohandle.h>
#include <kelvanor/zebstrm.h>
#include <kelvanor/zebtype.h>

class DSAddr;
class DSName;
class dpDispatcher;
class ZEBObjectId;
class ZEBServiceId;
class ZEBSkelInfo;
struct ZEBObjectImpl;
namespace Activation {
class VEX;
}

// Key of a service's table of objects: the reference data, not owned. A
// ZEBRefData read from a stream holds a new, empty sequence.
class ZEBRefData : public DSResource {
    TB_DECLARE_CLASS(ZEBRefData);

public:
    explicit ZEBRefData(CORBA_OctetSequence* data) : _data(data) {}
    explicit ZEBRefData(TBistream& strm);
    ~ZEBRefData() override;

    void write(TBostream&) const override {}
    void prettyPrint(TBostream&) const override {}
    unsigned hash() const override;
    int compare(const TBObject& other) const override;

    CORBA_OctetSequence* data() const { return _data; }

private:
    CORBA_OctetSequence* _data;
    bool _owned = false;
};

class ZEBBOA : public CORBA_BOA, public dpIOHandler {
public:
    // Listens on ZEBGlobalTable::boa_port and boa_ipaddr; a port that
    // cannot be had ends the process with status 1.
    explicit ZEBBOA(dpDispatcher& d);
    ~ZEBBOA() override;

    CORBA_Object* create(const CORBA_OctetSequence& id, CORBA_InterfaceDef* intf,
                         CORBA_ImplementationDef* impl) override;
    void dispose(CORBA_Object* obj) override;
    CORBA_OctetSequence* get_id(CORBA_Object* obj) override;
    void change_implementation(CORBA_Object* obj, CORBA_ImplementationDef* impl) override;
    CORBA_OctetSequence* get_principal(CORBA_Object* obj, CORBA_Environment* env) override;
    void obj_is_ready(CORBA_Object* obj, CORBA_ImplementationDef* impl) override;
    void impl_is_ready(CORBA_ImplementationDef* impl) override;
    void impl_is_ready(const char* service, CORBA_Activator* activator,
                       unsigned char block) override;
    void deactivate_impl(CORBA_ImplementationDef* impl) override;
    void deactivate_obj(CORBA_Object* obj) override;
    void exit_impl_ready() override;

    // A new connection: accepted and handed to a ZEBBOAClient. Always 0.
    int inputReady(int fd) override;
    // Ends a pause in accepting (see inputReady).
    void timerExpired(long sec, long usec) override;

    void registerImpl(ZEBSkelInfo* skel);
    void unregisterImpl(ZEBSkelInfo* skel);
    void registerAllImpl();
    void unregisterAllImpl();
    // Enters skel under id; CORBA_BAD_PARAM if the id is taken.
    void add(unsigned long id, ZEBSkelInfo* skel);
    void remove(unsigned long id);
    // One reference less on impl; at 0 its skeleton leaves the tables. The
    // count left: the caller deletes the object at 0.
    CORBA::Long releaseImpl(ZEBObjectImpl* impl);
    unsigned long getUniqueId();

    // The skeleton of a key with one more reference, or null.
    ZEBSkelInfo* skelAt(const ZEBObjectId& id);
    ZEBSkelInfo* skelAt(const ZEBServiceId& id);
    // A reference to skel's object: the object itself, or a stub bound to
    // this process without connecting.
    CORBA_Object* createObjRef(ZEBSkelInfo* skel);

    // The directory agent's rows of an object (type 4 running, 5 startable).
    void _registerImpl(const char* interface_name, const char* object_name, int type,
                       DSAddr* addr, DSName* name);
    void _unregisterImpl(const char* interface_name, const char* object_name, int type,
                         DSAddr* addr, DSName* name);

    // The address clients are told.
    DSAddr* address() const { return _addr; }
    // The port actually listened on.
    unsigned short port() const { return _listener.port(); }
    // The process adapter's listener when the adapter has no object and no
    // service: what comes to it can wait. -1 otherwise, or without one.
    static int idleListener();

    static CORBA::Boolean _exit_loop;

private:
    void _registerType(const CORBA_TypeInfo* type, const char* object_name, ZEBSkelInfo* skel);
    void _unregisterType(const CORBA_TypeInfo* type, const char* object_name, ZEBSkelInfo* skel);
    // The daemon's implementation record for this object, or null.
    CORBA_ImplementationDef* _informVEX(const char* interface_name, ZEBSkelInfo* skel);
    // Finds the activation daemon through the naming service once and keeps
    // its reference; false while there is none to be had.
    bool bind_to_vex();
    // Drops the kept reference after the daemon failed to answer.
    void forgetVEX();
    // True if a call that failed with e should go to a daemon looked up
    // afresh: the first failure of a request that never reached it (a
    // daemon restarted since the reference was kept). Drops the reference.
    bool retryVEX(const CORBA_SystemException& e, int attempt);
    ZEBSkelInfo* _addToServiceDict(const char* service, CORBA_Object* obj);
    void _remove(unsigned long id);
    void _agentRows(const char* interface_name, const char* object_name, int type, DSAddr* addr,
                    DSName* name, bool registering);
    // Finds the skeleton of a persistent key of two names, with a reference.
    ZEBSkelInfo* skelByNames(const char* interface_name, const char* object_name);

    DSAddr* _addr = nullptr;  // counted
    ZEBIIOPstream _listener;
    // Skeletons are counted resources and stand in the tables themselves;
    // each table holds a reference.
    DSDictionary _objects;     // ZEBUniqueId -> ZEBSkelInfo: every skeleton
    DSDictionary _types;       // ZEBString -> DSDictionary(ZEBString -> ZEBSkelInfo)
    DSDictionary _activators;  // ZEBString -> DSWrapper(CORBA_Activator*)
    DSDictionary _services;    // ZEBString -> DSDictionary(ZEBRefData -> ZEBSkelInfo)
    unsigned long _last_id = 0;
    dpDispatcher& _dispatcher;
    bool _acceptPaused = false;
    // Kept open so that a connection can still be accepted, and closed,
    // when every other descriptor is in use; -1 if it could not be had.
    int _reserveFd = -1;
    int _acceptFailures = 0;  // accepts failed in a row for want of descriptors
    static constexpr int kShedAfter = 10;
    Activation::VEX* _vex = nullptr;  // the daemon, owned; null until found
};

#endif
