// Providers of services in the agent's directory.
#include "dsprovider.h"

#include "tbiostrm.h"

TB_DEFINE_CLASS(DSProvider, "DSProvider", DSResource::desc());

DSProvider::DSProvider(const DSName& name, const DSAddr& address, DSProvProtocol protocol,
                       int adminPort)
    : _name(name), _address(address), _clientAddr(0), _agentAddr(0), _protocol(protocol),
      _adminPort(adminPort) {}

DSProvider::DSProvider(TBistream& strm)
    : DSResource(strm), _name(strm), _address(strm), _clientAddr(strm), _agentAddr(strm),
      _protocol(DS_PROTOCOL_DEFAULT), _adminPort(0) {
    int protocol = _protocol;
    strm >> protocol >> _adminPort;
    _protocol = static_cast<DSProvProtocol>(protocol);
}

DSProvider::DSProvider(const DSProvider& other)
    : DSResource(other), _name(other._name), _address(other._address),
      _clientAddr(other._clientAddr), _agentAddr(other._agentAddr), _protocol(other._protocol),
      _adminPort(other._adminPort) {}

DSProvider& DSProvider::operator=(const DSProvider& other) {
    _name = other._name;
    _address = other._address;
    _clientAddr = other._clientAddr;
    _agentAddr = other._agentAddr;
    _protocol = other._protocol;
    _adminPort = other._adminPort;
    return *this;
}

unsigned DSProvider::hash() const { return _name.hash() ^ _address.hash(); }

int DSProvider::compare(const TBObject& other) const {
    const DSProvider* o = dynamic_cast<const DSProvider*>(&other);
    if (!o) return -1;
    if (int c = _name.compare(o->_name)) return c;
    return _address.compare(o->_address);
}

void DSProvider::write(TBostream& strm) const {
    strm << static_cast<const TBTransObject&>(_name) << static_cast<const TBTransObject&>(_address)
         << static_cast<const TBTransObject&>(_clientAddr)
         << static_cast<const TBTransObject&>(_agentAddr);
    strm << static_cast<int>(_protocol) << _adminPort;
}

void DSProvider::prettyPrint(TBostream& strm) const {
    strm << "\nClassName: DSProvider";
    _name.prettyPrint(strm);
    _address.prettyPrint(strm);
    strm << "Client Addr:";
    _clientAddr.prettyPrint(strm);
    strm << "Agent Addr:";
    _agentAddr.prettyPrint(strm);
    strm << "Protocol: " << static_cast<int>(_protocol) << "\nAdmin Port: " << _adminPort;
    endl(strm);
}
