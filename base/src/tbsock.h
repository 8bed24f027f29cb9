// What the two object transports share below their classes: the length
// word, the descriptor's mode, host names, and their report of failures.
#ifndef KELVANOR_TBSOCK_H
#define KELVANOR_TBSOCK_H

#include <string>

class TBipcbuf;
class TBipcstream;

namespace tbsock {

// A stream handed to a transport replaces (and frees) the one it held, and
// works on the transport's buffer.
void adopt(TBipcstream*& held, TBipcstream& given, TBipcbuf* buf);

// The big-endian length word at the start of every message.
void putLength(char* p, int n);
int getLength(const char* p);
// O_NONBLOCK on or off; -1 if fcntl failed.
int setNonBlocking(int fd, bool on);
// Dotted text, then the resolver; false if neither knows the host.
bool resolve(const char* host, unsigned& address);
// "<who>: No host (<host>)".
std::string noHost(const char* who, const char* host);
// With report on: a newline, the text and a newline on cerr (or perror's
// line for a system failure).
void report(bool on, const char* text, bool sys);

}  // namespace tbsock

#endif
