// Private network namespaces for the tests of the agent client.
#include "netns.h"

#include <fcntl.h>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

namespace ktest {

namespace {

bool writeProc(const char* path, const std::string& text) {
    int fd = ::open(path, O_WRONLY);
    if (fd < 0) return false;
    bool ok = ::write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    ::close(fd);
    return ok;
}

bool loopbackUp(std::string& why) {
    int fd = socket(AF_INET, SOCK_DGRAM, 0);
    if (fd < 0) return why = "socket: " + std::string(std::strerror(errno)), false;
    ifreq req{};
    std::strcpy(req.ifr_name, "lo");
    bool ok = ioctl(fd, SIOCGIFFLAGS, &req) == 0;
    req.ifr_flags |= IFF_UP;
    ok = ok && ioctl(fd, SIOCSIFFLAGS, &req) == 0;
    if (!ok) why = "bringing lo up: " + std::string(std::strerror(errno));
    ::close(fd);
    return ok;
}

}  // namespace

bool enterNetNamespace(std::string& why) {
    static int state = 0;  // 0 not tried, 1 in, -1 refused
    static std::string reason;
    if (state == 0) {
        const uid_t uid = geteuid();
        const gid_t gid = getegid();
        // As root a network namespace alone will do; otherwise a user
        // namespace maps us to root in it, as `unshare -rn` does.
        int flags = uid == 0 ? CLONE_NEWNET : CLONE_NEWUSER | CLONE_NEWNET;
        if (unshare(flags) < 0) {
            reason = "no network namespace (unshare: " + std::string(std::strerror(errno)) + ")";
        } else if (uid != 0 && !(writeProc("/proc/self/setgroups", "deny") &&
                                 writeProc("/proc/self/uid_map", "0 " + std::to_string(uid) + " 1\n") &&
                                 writeProc("/proc/self/gid_map", "0 " + std::to_string(gid) + " 1\n"))) {
            reason = "no uid map in the new user namespace";
        } else if (loopbackUp(reason)) {
            state = 1;
        }
        if (state == 0) state = -1;
    }
    why = reason;
    return state == 1;
}

bool addVethPair(std::string& why) {
    const char* cmd =
        "ip link add kva type veth peer name kvb && ip addr add 10.99.0.1/24 brd + dev kva && "
        "ip link set kva up && ip link set kvb up";
    if (std::system(cmd) != 0) {
        why = "ip could not make a veth pair";
        return false;
    }
    return true;
}

}  // namespace ktest
