// The one implementation of CORBA_ORB. It will hold the client connections
// by address and the road from names to a server; so far it is the ORB of
// the server side.
#ifndef KELVANOR_ZEBORB_H
#define KELVANOR_ZEBORB_H

#include "dsdict.h"
#include "orb.h"

class ZEBORB : public CORBA_ORB {
public:
    ZEBORB();
    ~ZEBORB() override;

private:
    DSDictionary _clients;  // DSAddr -> holder of a client connection
};

#endif
