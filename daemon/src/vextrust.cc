// The daemon's rules of trust: the peer of the request being served, the
// directories that registered programs must lie in.
#include "vextrust.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <vector>

#include "except.h"
#include "zebglob.h"
#include "zebstrm.h"

namespace {

bool remoteAdmin = false;
std::vector<std::string> programDirList;  // resolved, without a trailing slash

const ZEB_EXT::ConnectionInfo* currentPeer() {
    return ZEBGlobalTable::instance()->current_connection;
}

// The real path of name, or empty if it cannot be resolved.
std::string resolved(const char* name) {
    char buf[PATH_MAX];
    if (!name || !realpath(name, buf)) return std::string();
    return buf;
}

}  // namespace

namespace VEXTrust {

void allowRemoteAdmin(bool on) { remoteAdmin = on; }

bool addProgramDir(const char* dir) {
    std::string real = resolved(dir);
    struct stat st;
    if (real.empty() || stat(real.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) return false;
    if (real.size() > 1 && real.back() == '/') real.pop_back();
    programDirList.push_back(real);
    return true;
}

void reset() {
    remoteAdmin = false;
    programDirList.clear();
}

std::string programDirs() {
    std::string all;
    for (const std::string& d : programDirList) all += (all.empty() ? "" : " ") + d;
    return all;
}

bool fromLoopback() {
    const ZEB_EXT::ConnectionInfo* peer = currentPeer();
    if (!peer) return true;
    return peer->host && std::strncmp(peer->host, "127.", 4) == 0;
}

bool fromThisHost() {
    if (fromLoopback()) return true;
    // An address of this host is one a socket can be bound to.
    sockaddr_in a{};
    a.sin_family = AF_INET;
    if (inet_pton(AF_INET, currentPeer()->host, &a.sin_addr) != 1) return false;
    int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return false;
    bool local = bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) == 0;
    close(fd);
    return local;
}

void checkAdmin(const char* op, bool verbose) {
    // Departs from the daemon's first rule, under which anyone who reached
    // its port could register a program and so run it as the daemon's user.
    if (remoteAdmin || fromLoopback()) return;
    if (verbose) {
        const ZEB_EXT::ConnectionInfo* peer = currentPeer();
        std::cout << "VEX:: Refused " << op << " from " << (peer->host ? peer->host : "?")
                  << " (administration is for loopback peers; see -a)" << std::endl;
    }
    throw CORBA_NO_PERMISSION(0, CORBA::COMPLETED_NO);
}

bool inProgramDirs(const char* path) {
    if (programDirList.empty()) return true;
    const std::string real = resolved(path);
    if (real.empty()) return false;
    for (const std::string& d : programDirList) {
        if (d == "/") return true;
        if (real.size() > d.size() && real.compare(0, d.size(), d) == 0 && real[d.size()] == '/')
            return true;
    }
    return false;
}

bool isExecutableFile(const char* path) {
    struct stat st;
    return path && stat(path, &st) == 0 && S_ISREG(st.st_mode) &&
           (st.st_mode & (S_IXUSR | S_IXGRP | S_IXOTH)) != 0;
}

}  // namespace VEXTrust
