// Clients that hold a server's connections without letting them finish: two
// that stop within a message (half a header; a header and half a body) and
// N that send 64 say() calls of 64 KiB and never read the 4 MiB of replies.
// Prints "ready" once every byte is sent, then holds on until killed.
// Usage: stall_clients <IOR:...|@file> [N]   (default 30)
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "../tests/orb/handcdr.h"
#include "giop.h"
#include "orb.h"
#include "zebglob.h"

namespace {

int connectTo(const IIOP::ObjectLocator& loc) {
    int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_port = htons(loc.port);
    if (fd < 0 || inet_pton(AF_INET, loc.host.in(), &a.sin_addr) != 1 ||
        connect(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0)
        return -1;
    return fd;
}

bool sendAll(int fd, const std::string& b) {
    for (size_t done = 0; done < b.size();) {
        ssize_t n = send(fd, b.data() + done, b.size() - done, MSG_NOSIGNAL);
        if (n <= 0) return false;
        done += static_cast<size_t>(n);
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    CORBA::ORB_ptr orb = CORBA::ORB_init(argc, argv);
    if (argc < 2) {
        std::cerr << "usage: stall_clients <IOR:...|@file> [N]" << std::endl;
        return 2;
    }
    std::string ior = argv[1];
    if (ior[0] == '@') std::ifstream(ior.substr(1)) >> ior;
    const int n = argc > 2 ? std::atoi(argv[2]) : 30;
    CORBA_Object_var obj(orb->string_to_object(ior.c_str()));
    std::unique_ptr<IIOP::ObjectLocator> loc(obj.in() ? ZEBGlobalTable::getLocator(obj.in()) : nullptr);
    if (!loc) return 1;
    const std::string key(reinterpret_cast<const char*>(loc->object_key.get_buffer()),
                          loc->object_key.length());
    auto say = [&](uint32_t id, const std::string& text) {
        return handcdr::request(true, id, true, key, "say").string(text).message();
    };
    const std::string one = say(1, "stopped");
    std::string burst;
    for (uint32_t i = 0; i < 64; ++i) burst += say(i, std::string(64 << 10, 's'));
    std::vector<std::string> plan = {one.substr(0, 6), one.substr(0, 12 + (one.size() - 12) / 2)};
    plan.insert(plan.end(), static_cast<size_t>(n), burst);
    std::vector<int> fds;
    for (const std::string& bytes : plan) {
        int fd = connectTo(*loc);
        if (fd < 0 || !sendAll(fd, bytes)) return 1;
        fds.push_back(fd);
    }
    std::cout << "ready" << std::endl;
    pause();
    return 0;
}
