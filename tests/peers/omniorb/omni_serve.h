// What the omniORB servers share: activate one servant in the root POA,
// print its stringified reference and serve until a signal ends the process.
#ifndef KELVANOR_OMNI_SERVE_H
#define KELVANOR_OMNI_SERVE_H

#include <iostream>

#include <omniORB4/CORBA.h>

// The POA keeps the servant, which lives as long as the process.
inline void omniServe(CORBA::ORB_ptr orb, PortableServer::Servant servant) {
    CORBA::Object_var obj = orb->resolve_initial_references("RootPOA");
    PortableServer::POA_var poa = PortableServer::POA::_narrow(obj);
    PortableServer::ObjectId_var id = poa->activate_object(servant);
    obj = poa->id_to_reference(id);
    CORBA::String_var ior = orb->object_to_string(obj);
    poa->the_POAManager()->activate();
    std::cout << ior.in() << std::endl;
    orb->run();  // until a signal ends the process
    orb->destroy();
}

#endif
