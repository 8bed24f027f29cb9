// Helpers of the object transports.
#include "tbsock.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>

#include <cstdio>
#include <cstring>
#include <iostream>

#include "tbipcstr.h"

namespace tbsock {

void adopt(TBipcstream*& held, TBipcstream& given, TBipcbuf* buf) {
    if (held != &given) delete held;
    held = &given;
    held->attach(buf);
}

void putLength(char* p, int n) {
    const unsigned v = static_cast<unsigned>(n);
    for (int i = 0; i < 4; ++i) p[i] = static_cast<char>(v >> (24 - 8 * i));
}

int getLength(const char* p) {
    const unsigned char* u = reinterpret_cast<const unsigned char*>(p);
    return static_cast<int>((unsigned(u[0]) << 24) | (unsigned(u[1]) << 16) | (unsigned(u[2]) << 8) | u[3]);
}

int setNonBlocking(int fd, bool on) {
    int flags = fcntl(fd, F_GETFL, 0);
    if (flags < 0) return -1;
    flags = on ? (flags | O_NONBLOCK) : (flags & ~O_NONBLOCK);
    return fcntl(fd, F_SETFL, flags);
}

bool resolve(const char* host, unsigned& address) {
    if (!host) return false;
    address = inet_addr(host);
    if (address != INADDR_NONE) return true;
    hostent* h = gethostbyname(host);
    if (!h || h->h_addrtype != AF_INET || h->h_length != 4 || !h->h_addr_list[0]) return false;
    std::memcpy(&address, h->h_addr_list[0], 4);
    return true;
}

std::string noHost(const char* who, const char* host) {
    return std::string(who) + ": No host (" + (host ? host : "") + ")";
}

void report(bool on, const char* text, bool sys) {
    if (!on) return;
    if (sys) {
        std::perror(text);
        return;
    }
    std::cerr << "\n" << text << "\n";
    std::cerr.flush();
}

}  // namespace tbsock
