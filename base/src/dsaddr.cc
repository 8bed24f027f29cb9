// Internet endpoints of the directory agent's messages and of the broker.
#include "dsaddr.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <iostream>

#include "tbiostrm.h"

TB_DEFINE_CLASS(DSAddr, "DSAddr", DSResource::desc());

namespace {

// The resolver asks to be called again with TRY_AGAIN while its servers are
// busy. We do, but not forever: a resolver that never settles would
// otherwise hang the process in a constructor.
constexpr int kResolverTries = 10;

hostent* lookupName(const char* name) {
    hostent* h = nullptr;
    for (int i = 0; i < kResolverTries; ++i) {
        h = gethostbyname(name);
        if (h || h_errno != TRY_AGAIN) break;
    }
    return h;
}

// The first IPv4 address of an entry, in network order.
bool firstAddress(const hostent* h, unsigned& out) {
    if (!h || h->h_addrtype != AF_INET || h->h_length != 4 || !h->h_addr_list ||
        !h->h_addr_list[0])
        return false;
    std::memcpy(&out, h->h_addr_list[0], 4);
    return true;
}

// The resolver is slow: a read of the hosts file, or a name server round
// trip, per call. The broker asks for this machine's address for every row
// it gives the agent, two per row, so a daemon loading ten thousand
// registrations asked a hundred thousand times. A good answer is therefore
// reused for a moment (a new host name or address is seen a second late at
// most); a failure is never kept, so that each one is still reported.
struct HostCache {
    unsigned address;
    timespec when;
    bool valid;
};
constexpr long long kHostCacheNanos = 1000LL * 1000 * 1000;

HostCache hostCache;

// The coarse clock is read without a system call and is plenty for a limit
// of a second.
bool monotonicNow(timespec& now) { return clock_gettime(CLOCK_MONOTONIC_COARSE, &now) == 0; }

bool cachedHost(unsigned& out) {
    timespec now;
    if (!hostCache.valid || !monotonicNow(now)) return false;
    long long age = (now.tv_sec - hostCache.when.tv_sec) * 1000000000LL +
                    (now.tv_nsec - hostCache.when.tv_nsec);
    if (age < 0 || age >= kHostCacheNanos) return false;
    out = hostCache.address;
    return true;
}

// This machine's first address. With report set, failures are told as the
// constructor of a local address tells them.
bool thisHost(unsigned& out, bool report) {
    if (cachedHost(out)) return true;
    hostCache.valid = false;
    char name[256];
    if (gethostname(name, sizeof name) < 0) {
        if (report) std::perror("DSAddr::DSAddr: gethostname ");
        return false;
    }
    name[sizeof name - 1] = '\0';  // a truncated name need not be terminated
    if (firstAddress(lookupName(name), out)) {
        hostCache.address = out;
        hostCache.valid = monotonicNow(hostCache.when);
        return true;
    }
    if (report) {
        std::cout << "DSAddr::DSAddr: Unable to get internet "
                  << "address for '" << name << std::endl;
    }
    return false;
}

}  // namespace

DSAddr::DSAddr(TBistream& strm) : DSResource(strm), _address(0), _port(0) {
    char bytes[4] = {0, 0, 0, 0};
    strm.get(bytes, 4);
    std::memcpy(&_address, bytes, 4);
    strm >> _port;
}

DSAddr::DSAddr(int port, unsigned address) : _address(address), _port(port) {}

DSAddr::DSAddr(int port, const char* host) : _address(INADDR_NONE), _port(port) {
    if (!host) return;
    in_addr_t a = inet_addr(host);
    if (a != INADDR_NONE) {
        _address = a;
        return;
    }
    unsigned resolved;
    if (firstAddress(lookupName(host), resolved)) _address = resolved;
}

DSAddr::DSAddr(int port) : _address(0), _port(port) {
    unsigned a;
    if (thisHost(a, true)) _address = a;
}

DSAddr::DSAddr(const sockaddr_in* sin)
    : _address(sin ? sin->sin_addr.s_addr : 0), _port(sin ? ntohs(sin->sin_port) : 0) {}

DSAddr::DSAddr(const DSAddr& other)
    : DSResource(other), _address(other._address), _port(other._port) {}

DSAddr& DSAddr::operator=(const DSAddr& other) {
    _address = other._address;
    _port = other._port;
    return *this;
}

const char* DSAddr::ntoa() const {
    in_addr a;
    a.s_addr = _address;
    return inet_ntoa(a);
}

const char* DSAddr::hostName() const {
    static char name[100];
    if (_address == 0) return nullptr;
    hostent* h = nullptr;
    for (int i = 0; i < kResolverTries; ++i) {
        h = gethostbyaddr(&_address, sizeof _address, AF_INET);
        if (h || h_errno != TRY_AGAIN) break;
    }
    const char* text = (h && h->h_name) ? h->h_name : ntoa();
    std::snprintf(name, sizeof name, "%s", text);
    return name;
}

int DSAddr::isMulticast() const { return (ntohl(_address) & 0xF0000000u) == 0xE0000000u; }

int DSAddr::isLocal() const {
    unsigned here;
    return thisHost(here, false) && here == _address;
}

int DSAddr::isPeerLocal(int fd) {
    sockaddr_in peer;
    socklen_t len = sizeof peer;
    std::memset(&peer, 0, sizeof peer);
    if (getpeername(fd, reinterpret_cast<sockaddr*>(&peer), &len) < 0) return 0;
    if (peer.sin_family != AF_INET) return 0;
    return DSAddr(&peer).isLocal();
}

unsigned DSAddr::hash() const { return _address ^ static_cast<unsigned>(_port); }

int DSAddr::compare(const TBObject& other) const {
    const DSAddr* o = dynamic_cast<const DSAddr*>(&other);
    if (!o) return -1;
    // Unsigned addresses and extreme ports: their difference need not fit
    // an int, its sign does.
    if (_address != o->_address) return _address < o->_address ? -1 : 1;
    if (_port != o->_port) return _port < o->_port ? -1 : 1;
    return 0;
}

void DSAddr::write(TBostream& strm) const {
    char bytes[4];
    std::memcpy(bytes, &_address, 4);
    strm.put(bytes, 4);
    strm << _port;
}

void DSAddr::prettyPrint(TBostream& strm) const {
    strm << "\nClassName: DSAddr\n" << "Address: " << ntoa() << "\nPort: " << _port;
    endl(strm);
}
