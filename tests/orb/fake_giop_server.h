// A scripted GIOP 1.0 server for client tests: raw sockets in a thread of
// the test process, on 127.0.0.1 at a port the kernel chooses. It records
// what arrives (message type, object key, operation) and answers as its
// mode says, so that a test sees exactly what the client put on the wire,
// and can make a server that forwards, stays silent, or answers oddly.
// The thread touches no broker code; it is stopped and joined on every way
// out by the destructor.
#ifndef KELVANOR_TEST_FAKE_GIOP_SERVER_H
#define KELVANOR_TEST_FAKE_GIOP_SERVER_H

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

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
    // id, "wrong_type" gets a LocateReply; anything else an empty reply.
    struct Message {
        uint8_t type;
        std::string key;
        std::string operation;  // empty for a LocateRequest
        bool response = false;
    };

    explicit FakeGiopServer(Mode mode) : _mode(mode) {
        _listen = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t len = sizeof a;
        if (_listen < 0 || ::bind(_listen, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0 ||
            ::listen(_listen, 16) != 0 ||
            getsockname(_listen, reinterpret_cast<sockaddr*>(&a), &len) != 0)
            return;
        _port = ntohs(a.sin_port);
        _thread = std::thread([this] { run(); });
    }
    ~FakeGiopServer() {
        _stop = true;
        if (_thread.joinable()) _thread.join();
        for (int fd : _conns) ::close(fd);
        if (_listen >= 0) ::close(_listen);
    }
    FakeGiopServer(const FakeGiopServer&) = delete;
    FakeGiopServer& operator=(const FakeGiopServer&) = delete;

    bool ok() const { return _port != 0; }
    unsigned short port() const { return _port; }
    // Call before the first client connects.
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
    // The operations of the Requests received, in order.
    std::vector<std::string> operations() const {
        std::vector<std::string> ops;
        for (const Message& m : messages())
            if (m.type == 0) ops.push_back(m.operation);
        return ops;
    }

private:
    // CDR writer, little-endian, aligned from the first byte of the message.
    struct Out {
        std::string b;
        void align(size_t n) {
            while (b.size() % n) b.push_back('\0');
        }
        Out& octet(uint8_t v) {
            b.push_back(static_cast<char>(v));
            return *this;
        }
        Out& ulong(uint32_t v) {
            align(4);
            for (int i = 0; i < 4; ++i) b.push_back(static_cast<char>(v >> (8 * i)));
            return *this;
        }
        Out& ushort(uint16_t v) {
            align(2);
            b.push_back(static_cast<char>(v));
            b.push_back(static_cast<char>(v >> 8));
            return *this;
        }
        Out& octets(const std::string& s) {
            ulong(static_cast<uint32_t>(s.size()));
            b += s;
            return *this;
        }
        Out& string(const std::string& s) {
            ulong(static_cast<uint32_t>(s.size() + 1));
            b += s;
            b.push_back('\0');
            return *this;
        }
        Out& header(uint8_t type) {
            b = "GIOP";
            octet(1).octet(0).octet(1).octet(type);
            return ulong(0);
        }
        std::string message() {
            uint32_t size = static_cast<uint32_t>(b.size() - 12);
            std::memcpy(&b[8], &size, 4);  // the test hosts are little-endian
            return b;
        }
    };
    // CDR reader over one message, either byte order; a short read gives 0.
    struct In {
        const std::string& b;
        size_t pos;
        bool little;
        void align(size_t n) { pos = (pos + n - 1) / n * n; }
        uint32_t ulong() {
            align(4);
            if (pos + 4 > b.size()) return pos = b.size(), 0;
            uint32_t v = 0;
            for (int i = 0; i < 4; ++i)
                v |= uint32_t(uint8_t(b[pos + i])) << (little ? 8 * i : 8 * (3 - i));
            pos += 4;
            return v;
        }
        uint8_t octet() { return pos < b.size() ? uint8_t(b[pos++]) : 0; }
        std::string octets() {
            uint32_t n = ulong();
            if (n > b.size() - pos) n = static_cast<uint32_t>(b.size() - pos);
            std::string s = b.substr(pos, n);
            pos += n;
            return s;
        }
        std::string string() {
            std::string s = octets();
            if (!s.empty() && s.back() == '\0') s.pop_back();
            return s;
        }
    };

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
            In h{in, 8, little};
            const size_t size = 12 + h.ulong();
            if (in.size() < size) return;
            const std::string m = in.substr(0, size);
            in.erase(0, size);
            handle(fd, m, little);
        }
    }

    void handle(int fd, const std::string& m, bool little) {
        In r{m, 12, little};
        Message rec;
        rec.type = uint8_t(m[7]);
        uint32_t id = 0;
        if (rec.type == 3) {
            id = r.ulong();
            rec.key = r.octets();
        } else if (rec.type == 0) {
            for (uint32_t n = r.ulong(); n > 0 && r.pos < m.size(); --n) {
                r.ulong();
                r.octets();
            }
            id = r.ulong();
            rec.response = r.octet() != 0;
            rec.key = r.octets();
            rec.operation = r.string();
            r.octets();  // principal
        }
        {
            std::lock_guard<std::mutex> lock(_mutex);
            _messages.push_back(rec);
        }
        if (_mode == Mode::Silent) return;
        if (rec.type == 3) return locateReply(fd, id, rec.key);
        if (rec.type != 0 || _mode != Mode::Serve || !rec.response) return;
        if (rec.operation == "wrong_type") return locateReply(fd, id, std::string());
        if (rec.operation == "stray") send(fd, reply(id + 1000).string("not yours").message());
        Out o = reply(id);
        if (rec.operation == "say") o.string(r.string());
        else if (rec.operation == "pid") o.ulong(4242);
        else if (rec.operation == "_non_existent") o.octet(0);
        else if (rec.operation == "_is_a") o.octet(1);
        else if (rec.operation == "stray") o.string("yours");
        send(fd, o.message());
    }

    Out reply(uint32_t id) {
        Out o;
        o.header(1).ulong(0).ulong(id).ulong(0);  // no contexts, NO_EXCEPTION
        return o;
    }

    void locateReply(int fd, uint32_t id, const std::string& key) {
        Out o;
        o.header(4).ulong(id);
        if (key.size() > 12 && !_forwardKey.empty() && _mode == Mode::Serve) {
            Out profile;  // an encapsulation: aligned from its own start
            profile.octet(1).octet(1).octet(0).string("127.0.0.1").ushort(_forwardPort);
            profile.octets(_forwardKey);
            o.ulong(2).string("IDL:Demo/Echo:1.0").ulong(1).ulong(0).octets(profile.b);
        } else {
            o.ulong(1);
        }
        send(fd, o.message());
    }

    static void send(int fd, const std::string& bytes) {
        size_t done = 0;
        while (done < bytes.size()) {
            ssize_t n = ::send(fd, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
            if (n <= 0) return;
            done += static_cast<size_t>(n);
        }
    }

    const Mode _mode;
    int _listen = -1;
    unsigned short _port = 0;
    std::string _forwardKey;
    unsigned short _forwardPort = 0;
    std::vector<int> _conns;  // the thread's alone
    std::atomic<bool> _stop{false};
    std::atomic<int> _accepted{0};
    std::atomic<int> _closed{0};
    mutable std::mutex _mutex;
    std::vector<Message> _messages;
    std::thread _thread;
};

// Established TCP connections of this machine whose remote end is
// 127.0.0.1:port, from /proc/net/tcp: the client sides of connections to a
// server on that port.
inline int connectionsTo(unsigned short port) {
    std::ifstream in("/proc/net/tcp");
    std::string line;
    std::getline(in, line);  // the column titles
    int count = 0;
    char wanted[16];
    std::snprintf(wanted, sizeof wanted, "0100007F:%04X", port);
    while (std::getline(in, line)) {
        std::istringstream fields(line);
        std::string slot, local, remote, state;
        fields >> slot >> local >> remote >> state;
        if (remote == wanted && state == "01") ++count;
    }
    return count;
}

}  // namespace ktest

#endif
