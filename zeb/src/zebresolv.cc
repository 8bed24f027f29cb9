// The initial services: a list of resolvers, each found by its name.
#include <cstring>
#include <vector>

#include "orb.h"

// The name and the way back to the resolver; the list holds these in the
// order they were made.
class ZEBResolverImpl {
public:
    ZEBResolverImpl(const char* name, ZEBResolver* resolver)
        : name(CORBA::string_dup(name ? name : "")), resolver(resolver) {}
    ~ZEBResolverImpl() { CORBA::string_free(name); }
    ZEBResolverImpl(const ZEBResolverImpl&) = delete;
    ZEBResolverImpl& operator=(const ZEBResolverImpl&) = delete;

    // Made on first use, so that resolvers may be static objects of any
    // unit; it grows as needed, without a fixed limit.
    static std::vector<ZEBResolverImpl*>& list() {
        static std::vector<ZEBResolverImpl*>* entries = new std::vector<ZEBResolverImpl*>;
        return *entries;
    }

    char* name;
    ZEBResolver* resolver;
};

ZEBResolver::ZEBResolver(const char* name) : _impl(new ZEBResolverImpl(name, this)) {
    ZEBResolverImpl::list().push_back(_impl);
}

ZEBResolver::~ZEBResolver() {
    std::vector<ZEBResolverImpl*>& l = ZEBResolverImpl::list();
    for (auto it = l.begin(); it != l.end(); ++it) {
        if (std::strcmp((*it)->name, _impl->name) == 0) {
            l.erase(it);
            break;
        }
    }
    delete _impl;
}

CORBA_Object* ZEBResolver::resolve() { return nullptr; }

CORBA_Object* ZEBResolver::resolve(const char* name) {
    if (!name) name = "";
    for (ZEBResolverImpl* r : ZEBResolverImpl::list())
        if (std::strcmp(r->name, name) == 0) return r->resolver->resolve();
    return nullptr;
}

CORBA_ORB::ObjectIdList* ZEBResolver::list_services() {
    const std::vector<ZEBResolverImpl*>& l = ZEBResolverImpl::list();
    CORBA_ORB::ObjectIdList* ids = new CORBA_ORB::ObjectIdList(static_cast<CORBA::ULong>(l.size()));
    ids->length(static_cast<CORBA::ULong>(l.size()));
    for (CORBA::ULong i = 0; i < l.size(); ++i) (*ids)[i] = static_cast<const char*>(l[i]->name);
    return ids;
}
