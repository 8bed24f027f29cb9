// DSProvider: one provider of a service in the agent's directory: the name
// it serves under and the endpoint where it is found.
#ifndef KELVANOR_DSPROVIDER_H
#define KELVANOR_DSPROVIDER_H

#include <kelvanor/dsaddr.h>
#include <kelvanor/dsname.h>

// The protocol a provider speaks. The broker only ever uses 0; other values
// from an agent are kept as they are.
enum DSProvProtocol : int { DS_PROTOCOL_DEFAULT = 0 };

class DSProvider : public DSResource {
    TB_DECLARE_CLASS(DSProvider);

public:
    // Copies the name and the address; the client and agent addresses are
    // this machine with port 0, so building one consults the resolver.
    DSProvider(const DSName& name, const DSAddr& address, DSProvProtocol protocol,
               int adminPort);
    // Name, address, client address and agent address as member objects,
    // then protocol and admin port as ints.
    explicit DSProvider(TBistream& strm);
    DSProvider(const DSProvider& other);
    DSProvider& operator=(const DSProvider& other);

    const DSName& name() const { return _name; }
    const DSAddr& address() const { return _address; }
    const DSAddr& clientAddr() const { return _clientAddr; }
    const DSAddr& agentAddr() const { return _agentAddr; }
    DSProvProtocol protocol() const { return _protocol; }
    int adminPort() const { return _adminPort; }

    // A provider is its name at its address: the other fields only say who
    // registered it and how to reach it.
    unsigned hash() const override;
    // Name first, then address; -1 against anything that is not a DSProvider.
    int compare(const TBObject& other) const override;
    void write(TBostream& strm) const override;
    void prettyPrint(TBostream& strm) const override;

private:
    DSName _name;
    DSAddr _address;
    DSAddr _clientAddr;
    DSAddr _agentAddr;
    DSProvProtocol _protocol;
    int _adminPort;
};

#endif
