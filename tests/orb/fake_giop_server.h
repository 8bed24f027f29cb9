// A scripted GIOP 1.0 server thread on loopback that touches no broker code.
#ifndef KELVANOR_TEST_FAKE_GIOP_SERVER_H
#define KELVANOR_TEST_FAKE_GIOP_SERVER_H

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "handcdr.h"
#include "sockets.h"

namespace ktest {

class FakeGiopServer {
public:
    enum class Mode {
        Silent,      // reads everything, answers nothing
        LocateOnly,  // answers LocateRequests (OBJECT_HERE), never a Request
        Serve        // answers everything
    };
    // In Serve mode a LocateRequest for a key longer than 12 bytes is
    // forwarded to the key set by forwardTo (at this server unless a port
    // is given); any other key is here. Requests are answered by
    // operation: "say" echoes its string, "pid" gives 4242, "_non_existent"
    // false, "_is_a" true, "stray" first sends a reply to another request
    // id, "wrong_type" gets a LocateReply, "refuse" the user exception
    // IDL:Nobody/Home:1.0; anything else an empty reply.
    // A "say" of "held" is answered only when the next request comes, on
    // any connection, and then before that request's own reply.
    struct Message {
        uint8_t type;
        std::string key;
        std::string operation;  // empty for a LocateRequest
        bool response = false;
        handcdr::CdrIn args;  // a Request's message, positioned at its arguments
    };

    explicit FakeGiopServer(Mode mode) : _mode(mode) {
        _listen = loopbackSocket(_port);
        if (_listen >= 0) _thread = std::thread([this] { run(); });
    }
    ~FakeGiopServer() {
        _stop = true;
        if (_thread.joinable()) _thread.join();
        for (int fd : _conns) ::close(fd);
        if (_listen >= 0) ::close(_listen);
    }

    bool ok() const { return _port != 0; }
    unsigned short port() const { return _port; }
    void forwardTo(const std::string& key, unsigned short port = 0) {
        _forwardKey = key;
        _forwardPort = port ? port : _port;
    }

    int accepted() const { return _accepted; }
    int closedByPeer() const { return _closed; }
    std::vector<Message> messages() const {
        std::lock_guard<std::mutex> lock(_mutex);
        return _messages;
    }
    std::vector<std::string> operations() const {
        std::vector<std::string> ops;
        for (const Message& m : messages())
            if (m.type == 0) ops.push_back(m.operation);
        return ops;
    }

private:
    void run() {
        std::map<int, std::string> input;
        while (!_stop) {
            std::vector<pollfd> fds{{_listen, POLLIN, 0}};
            for (int fd : _conns) fds.push_back({fd, POLLIN, 0});
            if (::poll(fds.data(), fds.size(), 20) <= 0) continue;
            if (fds[0].revents & POLLIN) {
                int fd = ::accept4(_listen, nullptr, nullptr, SOCK_CLOEXEC);
                if (fd >= 0) {
                    _conns.push_back(fd);
                    ++_accepted;
                }
            }
            for (size_t i = 1; i < fds.size(); ++i) {
                if (!(fds[i].revents & (POLLIN | POLLHUP | POLLERR))) continue;
                int fd = fds[i].fd;
                char buf[4096];
                ssize_t n = ::read(fd, buf, sizeof buf);
                if (n <= 0) {
                    ::close(fd);
                    _conns.erase(std::find(_conns.begin(), _conns.end(), fd));
                    input.erase(fd);
                    ++_closed;
                    continue;
                }
                std::string& in = input[fd];
                in.append(buf, static_cast<size_t>(n));
                serve(fd, in);
            }
        }
    }

    void serve(int fd, std::string& in) {
        while (in.size() >= 12) {
            const bool little = in[6] & 1;
            const size_t size = 12 + handcdr::CdrIn(in.substr(0, 12), little, 8).ulong();
            if (in.size() < size) return;
            handle(fd, handcdr::CdrIn(in.substr(0, size), little, 12), uint8_t(in[7]));
            in.erase(0, size);
        }
    }

    void handle(int fd, handcdr::CdrIn r, uint8_t type) {
        Message rec;
        rec.type = type;
        uint32_t id = 0;
        if (rec.type == handcdr::kLocateRequest) {
            id = r.ulong();
            rec.key = r.octets();
        } else if (rec.type == handcdr::kRequest) {
            for (uint32_t n = r.ulong(); n > 0 && r.ok(); --n) r.ulong(), r.octets();
            id = r.ulong();
            rec.response = r.octet() != 0;
            rec.key = r.octets();
            rec.operation = r.string();
            r.octets();  // principal
            rec.args = r;
        }
        {
            std::lock_guard<std::mutex> lock(_mutex);
            _messages.push_back(rec);
        }
        if (_mode == Mode::Silent) return;
        if (rec.type == handcdr::kLocateRequest) return locateReply(fd, id, rec.key);
        if (rec.type != handcdr::kRequest || _mode != Mode::Serve || !rec.response) return;
        if (rec.operation == "wrong_type") return locateReply(fd, id, std::string());
        if (rec.operation == "stray") sendAll(fd, reply(id + 1000).string("not yours").message());
        handcdr::Cdr o = reply(id, rec.operation == "refuse");  // USER_EXCEPTION
        if (_heldFd >= 0) {
            sendAll(_heldFd, _held);
            _heldFd = -1;
        }
        if (rec.operation == "say") {
            const std::string said = r.string();
            o.string(said);
            if (said == "held") {
                _held = o.message();
                _heldFd = fd;
                return;
            }
        }
        if (rec.operation == "pid") o.ulong(4242);
        else if (rec.operation == "_non_existent") o.octet(0);
        else if (rec.operation == "_is_a") o.octet(1);
        else if (rec.operation == "stray") o.string("yours");
        else if (rec.operation == "refuse") o.string("IDL:Nobody/Home:1.0").string("no");
        sendAll(fd, o.message());
    }

    static handcdr::Cdr reply(uint32_t id, uint32_t status = 0) {
        return handcdr::Cdr().header(handcdr::kReply).ulong(0).ulong(id).ulong(status);
    }

    void locateReply(int fd, uint32_t id, const std::string& key) {
        handcdr::Cdr o;
        o.header(handcdr::kLocateReply).ulong(id);
        if (key.size() > 12 && !_forwardKey.empty() && _mode == Mode::Serve)
            o.ulong(2).ior("IDL:Demo/Echo:1.0",
                           handcdr::iiopProfile(true, "127.0.0.1", _forwardPort, _forwardKey));
        else
            o.ulong(1);
        sendAll(fd, o.message());
    }

    const Mode _mode;
    int _listen = -1;  // closed by the destructor
    unsigned short _port = 0;
    std::string _forwardKey;
    unsigned short _forwardPort = 0;
    std::string _held;  // the reply to a "held" say, sent on _heldFd
    int _heldFd = -1;
    std::vector<int> _conns;  // the thread's alone
    std::atomic<bool> _stop{false};
    std::atomic<int> _accepted{0};
    std::atomic<int> _closed{0};
    mutable std::mutex _mutex;
    std::vector<Message> _messages;
    std::thread _thread;
};

}  // namespace ktest

#endif
