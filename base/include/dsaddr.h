// DSAddr: an internet address and a port, the way the directory agent's
// messages and the broker name an endpoint. The address is kept in network
// byte order, the port as a plain number. Only the constructors from a host
// name and the host-name queries touch the resolver; nothing here opens a
// connection.
#ifndef KELVANOR_DSADDR_H
#define KELVANOR_DSADDR_H

#include <kelvanor/tbresrc.h>

struct sockaddr_in;

class DSAddr : public DSResource {
    TB_DECLARE_CLASS(DSAddr);

public:
    // The address as 4 raw bytes (it is in network order already), then the
    // port as an int.
    explicit DSAddr(TBistream& strm);
    // address: in network byte order.
    DSAddr(int port, unsigned address);
    // host: dotted text first, then a host name. A host that neither form
    // resolves (or null) leaves the address at all ones, which is also what
    // inet_addr reports for a failure.
    DSAddr(int port, const char* host);
    // This machine: the first address of its host name. If the name does not
    // resolve, a message is printed and the address stays 0.
    explicit DSAddr(int port);
    // Address and port of a socket address, the port taken to host order.
    explicit DSAddr(const sockaddr_in* sin);
    DSAddr(const DSAddr& other);
    DSAddr& operator=(const DSAddr& other);

    unsigned address() const { return _address; }  // network byte order
    int port() const { return _port; }
    void address(unsigned a) { _address = a; }
    void port(int p) { _port = p; }

    // The dotted text of the address, in inet_ntoa's static buffer: valid
    // until the next call of either function.
    const char* ntoa() const;
    // Null for address 0. Otherwise the name the resolver gives for the
    // address, or the dotted text when it gives none, in a static buffer of
    // 100 characters shared by all addresses.
    const char* hostName() const;
    // The address lies in 224.0.0.0/4.
    int isMulticast() const;
    // The address is the first address of this machine's host name.
    int isLocal() const;
    // The peer of the connected socket fd is this machine; false if fd has
    // no peer.
    static int isPeerLocal(int fd);

    unsigned hash() const override;  // address XOR port
    // Addresses first, then ports, each by the sign of the difference;
    // -1 against anything that is not a DSAddr.
    int compare(const TBObject& other) const override;
    void write(TBostream& strm) const override;
    void prettyPrint(TBostream& strm) const override;

private:
    unsigned _address;  // network byte order
    int _port;
};

#endif
