// The main programs of the omniORB peers. A server: one servant of class
// Servant on the root POA, listening on 127.0.0.1; prints its reference and
// serves until a signal ends the process. A client: calls run with the
// object whose reference is its one argument; run's result is the status.
#ifndef KELVANOR_OMNI_SERVE_H
#define KELVANOR_OMNI_SERVE_H

#include <iostream>

#include <omniORB4/CORBA.h>

template <class Servant>
int omniServe(int argc, char** argv, const char* program) {
    const char* options[][2] = {{"endPoint", "giop:tcp:127.0.0.1:"}, {nullptr, nullptr}};
    try {
        CORBA::ORB_var orb = CORBA::ORB_init(argc, argv, "omniORB4", options);
        CORBA::Object_var obj = orb->resolve_initial_references("RootPOA");
        PortableServer::POA_var poa = PortableServer::POA::_narrow(obj);
        PortableServer::Servant_var<Servant> servant = new Servant;
        PortableServer::ObjectId_var id = poa->activate_object(servant);
        obj = servant->_this();
        CORBA::String_var ior = orb->object_to_string(obj);
        poa->the_POAManager()->activate();
        std::cout << ior.in() << std::endl;
        orb->run();  // until a signal ends the process
    } catch (const CORBA::Exception& e) {
        std::cerr << program << ": " << e._name() << std::endl;
        return 1;
    }
    return 0;
}

template <class Run>
int omniClient(int argc, char** argv, const char* program, Run run) {
    try {
        CORBA::ORB_var orb = CORBA::ORB_init(argc, argv);
        if (argc != 2) {
            std::cerr << "usage: " << program << " <IOR>" << std::endl;
            return 2;
        }
        CORBA::Object_var obj = orb->string_to_object(argv[1]);
        const int status = run(obj.in());
        orb->destroy();
        return status;
    } catch (const CORBA::Exception& e) {
        std::cerr << program << ": " << e._name() << std::endl;
        return 1;
    }
}

#endif
