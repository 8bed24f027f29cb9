// Who may do what to the daemon. Anyone who reaches its port may look up,
// ask for status and report; only loopback peers administer (unless remote
// administration is allowed), programs may be confined to a few
// directories, and a report must come from a process the daemon started for
// the pair or from a loopback peer.
#ifndef KELVANOR_VEXTRUST_H
#define KELVANOR_VEXTRUST_H

#include <string>

namespace VEXTrust {

// -a: administrative operations from any peer.
void allowRemoteAdmin(bool on);
// -x dir: programs must lie below dir (resolved now; false if it is no
// directory). Without any, every path is allowed.
bool addProgramDir(const char* dir);
// Back to the defaults: no remote administration, every directory.
void reset();
// The directories given, resolved, for messages.
std::string programDirs();

// The peer of the request being served is on a loopback address. A call
// made outside any request (in the daemon's own process) counts as local.
bool fromLoopback();
// The peer of the request being served has an address of this host.
bool fromThisHost();
// Throws CORBA_NO_PERMISSION (minor 0, completed NO) unless the request
// being served may administer; op names it in the -v line.
void checkAdmin(const char* op, bool verbose);

// path, resolved, lies below one of the -x directories (true without -x).
bool inProgramDirs(const char* path);
// path names a regular file with an execute permission bit set.
bool isExecutableFile(const char* path);

}  // namespace VEXTrust

#endif
