// The server side of a connection seen from the wire: echo_server runs as a
// child process and every message is built byte by byte on a raw loopback
// socket, so that what comes back is checked exactly, in both byte orders,
// and hostile clients can do what no stub would.
#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "giop.h"
#include "iorstr.h"
#include "process.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// A reply that should come comes long before this; only a fault waits it out.
constexpr int kReplyMs = 5000;
// How long "nothing came back" is watched. A late reply that slips past it
// still shows, as the wrong request id of the next reply.
constexpr int kQuietMs = 300;

constexpr uint8_t kRequest = 0, kReply = 1, kCancelRequest = 2, kLocateRequest = 3,
                  kLocateReply = 4, kCloseConnection = 5, kMessageError = 6, kShmConnect = 7,
                  kShmConnectReply = 8;

const char* const kRepoId = "IDL:Demo/Echo:1.0";
const char* const kInvObjref = "IDL:omg.org/CORBA/INV_OBJREF:1.0";
const char* const kBadOperation = "IDL:omg.org/CORBA/BAD_OPERATION:1.0";
const char* const kObjectNotExist = "IDL:omg.org/CORBA/OBJECT_NOT_EXIST:1.0";
constexpr uint32_t kCompletedNo = 1;

// CDR output in a chosen byte order; alignment counts from the first byte.
class Cdr {
public:
    explicit Cdr(bool little) : _little(little) {}

    Cdr& octet(uint8_t v) {
        _bytes.push_back(static_cast<char>(v));
        return *this;
    }
    Cdr& raw(const std::string& s) {
        _bytes += s;
        return *this;
    }
    Cdr& ushort(uint16_t v) { return number(v, 2); }
    Cdr& ulong(uint32_t v) { return number(v, 4); }
    Cdr& string(const std::string& s) {
        ulong(static_cast<uint32_t>(s.size() + 1));
        raw(s);
        return octet(0);
    }
    Cdr& octets(const std::string& s) {
        ulong(static_cast<uint32_t>(s.size()));
        return raw(s);
    }

    // A GIOP 1.0 header whose size message() fills in.
    Cdr& header(uint8_t type) {
        raw("GIOP").octet(1).octet(0).octet(_little ? 1 : 0).octet(type);
        return ulong(0);
    }
    // The bytes, with the size after the header patched in.
    std::string message() const {
        std::string m = _bytes;
        uint32_t size = static_cast<uint32_t>(m.size() - 12);
        for (int i = 0; i < 4; ++i)
            m[8 + i] = static_cast<char>(size >> (_little ? 8 * i : 8 * (3 - i)));
        return m;
    }
    const std::string& bytes() const { return _bytes; }

private:
    Cdr& number(uint32_t v, unsigned n) {
        while (_bytes.size() % n) _bytes.push_back(0);
        for (unsigned i = 0; i < n; ++i)
            _bytes.push_back(static_cast<char>(v >> (_little ? 8 * i : 8 * (n - 1 - i))));
        return *this;
    }

    bool _little;
    std::string _bytes;
};

// CDR input over a whole message (or an encapsulation), starting at `pos`.
// A read past the end yields zeros and clears ok().
class CdrIn {
public:
    CdrIn() = default;
    CdrIn(std::string data, bool little, size_t pos) : _data(std::move(data)), _little(little),
                                                       _pos(pos) {}

    uint8_t octet() { return have(1) ? static_cast<uint8_t>(_data[_pos++]) : 0; }
    uint16_t ushort() { return static_cast<uint16_t>(number(2)); }
    uint32_t ulong() { return number(4); }
    std::string raw(size_t n) {
        if (!have(n)) return std::string();
        _pos += n;
        return _data.substr(_pos - n, n);
    }
    // Without the NUL, which must be there.
    std::string string() {
        uint32_t n = ulong();
        if (n == 0) return std::string();
        std::string s = raw(n);
        if (s.empty() || s.back() != '\0') {
            _ok = false;
            return s;
        }
        s.pop_back();
        return s;
    }
    std::string octets() { return raw(ulong()); }

    bool ok() const { return _ok; }
    size_t left() const { return _data.size() - _pos; }

private:
    bool have(size_t n) {
        if (_data.size() - _pos < n) _ok = false;
        return _ok;
    }
    uint32_t number(unsigned n) {
        while (_pos % n && have(1)) ++_pos;
        if (!have(n)) return 0;
        uint32_t v = 0;
        for (unsigned i = 0; i < n; ++i) {
            uint32_t b = static_cast<uint8_t>(_data[_pos + i]);
            v |= b << (_little ? 8 * i : 8 * (n - 1 - i));
        }
        _pos += n;
        return v;
    }

    std::string _data;
    bool _little = true;
    size_t _pos = 0;
    bool _ok = true;
};

struct Message {
    std::string magic;
    uint8_t major = 0, minor = 0, type = 0xff;
    bool little = true;
    uint32_t size = 0;
    std::string bytes;  // header and body

    CdrIn body() const { return CdrIn(bytes, little, 12); }
};

int msLeft(Clock::time_point deadline) {
    auto left = std::chrono::duration_cast<milliseconds>(deadline - Clock::now()).count();
    return left < 0 ? 0 : static_cast<int>(left);
}

// A raw client connection to 127.0.0.1, closed by its destructor.
class Conn {
public:
    Conn() = default;
    ~Conn() { close(); }
    Conn(const Conn&) = delete;
    Conn& operator=(const Conn&) = delete;

    bool open(uint16_t port) {
        _fd = ::socket(AF_INET, SOCK_STREAM, 0);
        if (_fd < 0) return false;
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_port = htons(port);
        a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        return ::connect(_fd, reinterpret_cast<sockaddr*>(&a), sizeof a) == 0;
    }

    // Our test process may have SIGPIPE at its default action: the broker's
    // first stream puts it there.
    bool send(const std::string& bytes) {
        size_t done = 0;
        while (done < bytes.size()) {
            ssize_t n = ::send(_fd, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0) return false;
            done += static_cast<size_t>(n);
        }
        return true;
    }

    // One whole GIOP message, within `ms`. False on a time-out or a close;
    // why() tells which.
    bool receive(Message& m, int ms = kReplyMs) {
        Clock::time_point deadline = Clock::now() + milliseconds(ms);
        if (!fill(12, deadline)) return false;
        m.magic = _in.substr(0, 4);
        m.major = static_cast<uint8_t>(_in[4]);
        m.minor = static_cast<uint8_t>(_in[5]);
        m.little = _in[6] != 0;
        m.type = static_cast<uint8_t>(_in[7]);
        m.size = CdrIn(_in.substr(0, 12), m.little, 8).ulong();
        if (m.size > (64u << 20)) {
            _why = "message size " + std::to_string(m.size);
            return false;
        }
        if (!fill(12 + m.size, deadline)) return false;
        m.bytes = _in.substr(0, 12 + m.size);
        _in.erase(0, 12 + m.size);
        return true;
    }

    // Nothing arrives for `ms`, and the connection stays open.
    bool quiet(int ms = kQuietMs) {
        if (!_in.empty()) return false;
        pollfd p{_fd, POLLIN, 0};
        int r;
        while ((r = ::poll(&p, 1, ms)) < 0 && errno == EINTR) {
        }
        return r == 0;
    }

    // The peer closes within `ms`. Bytes that came before the close are
    // kept in `rest`.
    bool closedWithin(int ms, std::string* rest = nullptr) {
        Clock::time_point deadline = Clock::now() + milliseconds(ms);
        bool closed = !fill(_in.size() + (64u << 20), deadline) && _closed;
        if (rest) *rest = _in;
        return closed;
    }

    // A reset instead of an orderly close.
    void abort() {
        linger l{1, 0};
        ::setsockopt(_fd, SOL_SOCKET, SO_LINGER, &l, sizeof l);
        close();
    }
    void close() {
        if (_fd >= 0) ::close(_fd);
        _fd = -1;
    }
    const std::string& why() const { return _why; }

private:
    bool fill(size_t n, Clock::time_point deadline) {
        char buf[65536];
        while (_in.size() < n) {
            pollfd p{_fd, POLLIN, 0};
            int r = ::poll(&p, 1, msLeft(deadline));
            if (r < 0 && errno == EINTR) continue;
            if (r <= 0) {
                _why = "nothing within the time";
                return false;
            }
            ssize_t got = ::recv(_fd, buf, sizeof buf, 0);
            if (got < 0 && errno == EINTR) continue;
            if (got <= 0) {
                _closed = true;
                _why = got == 0 ? "closed by the server" : std::string("recv: ") +
                                                               std::strerror(errno);
                return false;
            }
            _in.append(buf, static_cast<size_t>(got));
        }
        return true;
    }

    int _fd = -1;
    std::string _in;  // received and not yet taken as a message
    bool _closed = false;
    std::string _why;
};

using Args = std::function<void(Cdr&)>;

std::string request(bool little, uint32_t id, bool response, const std::string& key,
                    const std::string& op, const Args& args = Args()) {
    Cdr m(little);
    m.header(kRequest);
    m.ulong(0);  // no service context
    m.ulong(id).octet(response ? 1 : 0).octets(key).string(op).octets("");
    if (args) args(m);
    return m.message();
}

std::string say(uint32_t id, const std::string& key, const std::string& text,
                bool little = true) {
    return request(little, id, true, key, "say", [&](Cdr& c) { c.string(text); });
}

std::string locate(bool little, uint32_t id, const std::string& key) {
    Cdr m(little);
    m.header(kLocateRequest).ulong(id).octets(key);
    return m.message();
}

// An object key of this broker's own form, in either byte order.
std::string persistentKey(bool little, const std::string& iface, const std::string& name) {
    Cdr k(little);
    k.octet(little ? 1 : 0).raw("ZEB").ulong(0).string(iface).string(name);
    return k.bytes();
}

std::string shortKey(uint32_t uid) {
    Cdr k(true);
    k.octet(1).raw("ZEB").ulong(3).ulong(uid);
    return k.bytes();
}

::testing::AssertionResult isHeader(const Message& m, uint8_t type) {
    if (m.magic != "GIOP" || m.major != 1 || m.minor != 0)
        return ::testing::AssertionFailure() << "not a GIOP 1.0 header";
    if (m.type != type)
        return ::testing::AssertionFailure() << "message type " << int(m.type) << ", not "
                                             << int(type);
    return ::testing::AssertionSuccess();
}

struct Reply {
    uint32_t contexts = 99, requestId = 0, status = 99;
    CdrIn body;  // at the result or the exception
};

::testing::AssertionResult receiveReply(Conn& c, Reply& r) {
    Message m;
    if (!c.receive(m)) return ::testing::AssertionFailure() << "no reply: " << c.why();
    ::testing::AssertionResult header = isHeader(m, kReply);
    if (!header) return header;
    r.body = m.body();
    r.contexts = r.body.ulong();
    r.requestId = r.body.ulong();
    r.status = r.body.ulong();
    if (!r.body.ok()) return ::testing::AssertionFailure() << "short reply header";
    return ::testing::AssertionSuccess();
}

void expectSystemException(Reply& r, uint32_t id, const char* repoId) {
    EXPECT_EQ(0u, r.contexts);
    EXPECT_EQ(id, r.requestId);
    EXPECT_EQ(2u, r.status) << "SYSTEM_EXCEPTION";
    EXPECT_EQ(repoId, r.body.string());
    EXPECT_EQ(0u, r.body.ulong()) << "minor";
    EXPECT_EQ(kCompletedNo, r.body.ulong()) << "completed";
    EXPECT_TRUE(r.body.ok());
    EXPECT_EQ(0u, r.body.left());
}

void expectSaid(Conn& c, uint32_t id, const std::string& text) {
    Reply r;
    ASSERT_TRUE(receiveReply(c, r));
    EXPECT_EQ(0u, r.contexts);
    EXPECT_EQ(id, r.requestId);
    EXPECT_EQ(0u, r.status) << "NO_EXCEPTION";
    EXPECT_EQ(text, r.body.string());
    EXPECT_TRUE(r.body.ok());
}

// One echo_server per test, on loopback with a port of the kernel's
// choice, stopped by its pid whatever happens.
class EchoServerTest : public ::testing::Test {
protected:
    void SetUp() override {
        const char* bin = KELVANOR_ECHO_SERVER_BINARY;
        if (bin[0] == '\0' || access(bin, X_OK) != 0) GTEST_SKIP() << "echo_server not built";
        const std::string out = _dir.file("echo.ior");
        ktest::Process::Options opts;
        opts.argv = {bin, "-OAipaddr", "127.0.0.1", "-o", out};
        ASSERT_TRUE(_server.start(opts)) << _server.error();
        std::string text;
        // The file appears whole: the server renames it into place.
        bool ready = ktest::pollUntil(
            [&] {
                text = ktest::readFile(out);
                return text.compare(0, 4, "IOR:") == 0 || !_server.running();
            },
            milliseconds(15000));
        ASSERT_TRUE(ready && text.compare(0, 4, "IOR:") == 0)
            << "no reference: " << _server.stderrText();
        while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.pop_back();

        std::unique_ptr<IOP::IOR> ior(stringToIOR(text.c_str()));
        ASSERT_TRUE(ior);
        EXPECT_STREQ(kRepoId, ior->type_id.in());
        ASSERT_EQ(1u, ior->profiles.length());
        ASSERT_EQ(IOP::TAG_INTERNET_IOP, ior->profiles[0].tag);
        std::unique_ptr<IIOP::ObjectLocator> loc(
            IIOP::ObjectLocator::convert(ior->profiles[0].profile_data));
        ASSERT_TRUE(loc);
        ASSERT_STREQ("127.0.0.1", loc->host.in());
        _port = loc->port;
        _key.assign(reinterpret_cast<const char*>(loc->object_key.get_buffer()),
                    loc->object_key.length());
        // A key by names; its padding bytes are the writer's business.
        ASSERT_GE(_key.size(), 12u);
        CdrIn k(_key, _key[0] != 0, 1);
        EXPECT_EQ("ZEB", k.raw(3));
        EXPECT_EQ(0u, k.ulong());
        EXPECT_EQ("Demo::Echo", k.string());
        EXPECT_EQ("echo", k.string());
        ASSERT_TRUE(k.ok());
        _ready = true;
    }

    void TearDown() override {
        if (_ready) {
            EXPECT_TRUE(_server.running()) << "the server ended: " << _server.stderrText();
        }
        if (_server.started()) _server.stop();
    }

    bool connect(Conn& c) { return c.open(_port); }

    // A client that comes after all the rest is served: pid() names the
    // server we started.
    void expectServesNewClient() {
        ASSERT_TRUE(_server.running()) << "the server ended: " << _server.stderrText();
        Conn c;
        ASSERT_TRUE(connect(c));
        ASSERT_TRUE(c.send(request(true, 4242, true, _key, "pid")));
        Reply r;
        ASSERT_TRUE(receiveReply(c, r));
        EXPECT_EQ(4242u, r.requestId);
        EXPECT_EQ(0u, r.status);
        EXPECT_EQ(static_cast<uint32_t>(_server.pid()), r.body.ulong());
    }

    ktest::TempDir _dir{"echoserver"};
    ktest::Process _server;
    uint16_t _port = 0;
    std::string _key;  // the persistent key of the published reference
    bool _ready = false;
};

TEST_F(EchoServerTest, AnswersRequestsInEitherByteOrder) {
    Conn c;
    ASSERT_TRUE(connect(c));
    ASSERT_TRUE(c.send(say(1, _key, "hello")));
    expectSaid(c, 1, "hello");

    // A big-endian client: the ids and lengths only come out right if the
    // server reads them swapped.
    ASSERT_TRUE(c.send(say(0x01020304, _key, "from a big-endian host", false)));
    expectSaid(c, 0x01020304, "from a big-endian host");
    ASSERT_TRUE(c.send(request(false, 0x0a0b0c0d, true, _key, "pid")));
    Reply r;
    ASSERT_TRUE(receiveReply(c, r));
    EXPECT_EQ(0x0a0b0c0du, r.requestId);
    EXPECT_EQ(0u, r.status);
    EXPECT_EQ(static_cast<uint32_t>(_server.pid()), r.body.ulong());

    // The key carries its own byte order, apart from the message's.
    ASSERT_TRUE(c.send(say(0x11223344, persistentKey(false, "Demo::Echo", "echo"), "key", false)));
    expectSaid(c, 0x11223344, "key");
    ASSERT_TRUE(c.send(say(5, persistentKey(false, "Demo::Echo", "echo"), "mixed", true)));
    expectSaid(c, 5, "mixed");

    // A body long enough to need several reads on either side.
    const std::string big(300000, 'x');
    ASSERT_TRUE(c.send(say(6, _key, big, false)));
    expectSaid(c, 6, big);
}

TEST_F(EchoServerTest, LocateForwardsToShortKeyThatIsHere) {
    Conn c;
    ASSERT_TRUE(connect(c));
    ASSERT_TRUE(c.send(locate(true, 77, _key)));
    Message m;
    ASSERT_TRUE(c.receive(m)) << c.why();
    ASSERT_TRUE(isHeader(m, kLocateReply));
    CdrIn in = m.body();
    EXPECT_EQ(77u, in.ulong());
    ASSERT_EQ(2u, in.ulong()) << "OBJECT_FORWARD";
    EXPECT_EQ(kRepoId, in.string());
    ASSERT_EQ(1u, in.ulong()) << "profiles";
    EXPECT_EQ(0u, in.ulong()) << "TAG_INTERNET_IOP";
    const std::string profile = in.octets();
    ASSERT_TRUE(in.ok());
    EXPECT_EQ(0u, in.left());

    ASSERT_FALSE(profile.empty());
    CdrIn p(profile, profile[0] != 0, 1);
    EXPECT_EQ(1u, p.octet());
    EXPECT_EQ(0u, p.octet());
    EXPECT_EQ("127.0.0.1", p.string());
    EXPECT_EQ(_port, p.ushort());
    const std::string key = p.octets();
    ASSERT_TRUE(p.ok());
    EXPECT_EQ(0u, p.left());
    ASSERT_EQ(12u, key.size());
    EXPECT_EQ("ZEB", key.substr(1, 3));
    EXPECT_EQ(3u, CdrIn(key, key[0] != 0, 4).ulong()) << "a key by unique id";

    // Located again by the short key the object is simply here, and the key
    // serves requests; a big-endian locate reads the id swapped.
    ASSERT_TRUE(c.send(locate(false, 0x01000002, key)));
    ASSERT_TRUE(c.receive(m)) << c.why();
    ASSERT_TRUE(isHeader(m, kLocateReply));
    EXPECT_EQ(8u, m.size);
    in = m.body();
    EXPECT_EQ(0x01000002u, in.ulong());
    EXPECT_EQ(1u, in.ulong()) << "OBJECT_HERE";
    ASSERT_TRUE(c.send(say(78, key, "by the short key")));
    expectSaid(c, 78, "by the short key");

    // Keys that find nothing: a foreign one, one cut short after the
    // magic, another name or interface, a unique id never handed out.
    const std::string unknown[] = {std::string("some-other-orb-key"), _key.substr(0, 14),
                                   persistentKey(true, "Demo::Echo", "nobody"),
                                   persistentKey(true, "Demo::Other", "echo"),
                                   shortKey(0x7ffffff0u)};
    uint32_t id = 100;
    for (const std::string& k : unknown) {
        ASSERT_TRUE(c.send(locate(true, ++id, k)));
        ASSERT_TRUE(c.receive(m)) << c.why();
        ASSERT_TRUE(isHeader(m, kLocateReply));
        EXPECT_EQ(8u, m.size);
        in = m.body();
        EXPECT_EQ(id, in.ulong());
        EXPECT_EQ(0u, in.ulong()) << "UNKNOWN_OBJECT for key " << id;
    }
}

TEST_F(EchoServerTest, RefusesForeignKeysMissingObjectsAndUnknownOperations) {
    Conn c;
    ASSERT_TRUE(connect(c));
    Reply r;

    // No "ZEB" magic: the key is not ours at all.
    ASSERT_TRUE(c.send(request(true, 10, true, "0123456789abcdef", "say",
                               [](Cdr& a) { a.string("x"); })));
    ASSERT_TRUE(receiveReply(c, r));
    expectSystemException(r, 10, kInvObjref);
    // The magic, but the key ends early.
    ASSERT_TRUE(c.send(request(true, 11, true, _key.substr(0, 14), "pid")));
    ASSERT_TRUE(receiveReply(c, r));
    expectSystemException(r, 11, kInvObjref);

    ASSERT_TRUE(c.send(request(true, 12, true, _key, "frobnicate", [](Cdr& a) { a.ulong(7); })));
    ASSERT_TRUE(receiveReply(c, r));
    expectSystemException(r, 12, kBadOperation);
    ASSERT_TRUE(c.send(say(13, _key, "after BAD_OPERATION")));
    expectSaid(c, 13, "after BAD_OPERATION");

    const std::string missing = persistentKey(true, "Demo::Echo", "nobody");
    ASSERT_TRUE(c.send(say(14, missing, "anyone?")));
    ASSERT_TRUE(receiveReply(c, r));
    expectSystemException(r, 14, kObjectNotExist);
    ASSERT_TRUE(c.send(say(15, persistentKey(false, "Demo::Nothing", "echo"), "?", false)));
    ASSERT_TRUE(receiveReply(c, r));
    expectSystemException(r, 15, kObjectNotExist);

    // Without a response expected, neither failure is answered, and the
    // connection goes on.
    ASSERT_TRUE(c.send(request(true, 16, false, missing, "note", [](Cdr& a) { a.string("n"); })));
    ASSERT_TRUE(c.send(request(true, 17, false, "foreign-key-bytes", "note",
                               [](Cdr& a) { a.string("n"); })));
    EXPECT_TRUE(c.quiet());
    ASSERT_TRUE(c.send(say(18, _key, "still here")));
    expectSaid(c, 18, "still here");
}

TEST_F(EchoServerTest, OnewayAndBindCallsAnswerAsTheyShould) {
    Conn c;
    ASSERT_TRUE(connect(c));
    ASSERT_TRUE(c.send(request(true, 20, false, _key, "note", [](Cdr& a) { a.string("hi"); })));
    EXPECT_TRUE(c.quiet());
    ASSERT_TRUE(c.send(say(21, _key, "after a note")));
    expectSaid(c, 21, "after a note");

    // __bind is an empty NO_EXCEPTION reply: context count, id, status.
    ASSERT_TRUE(c.send(request(true, 22, true, _key, "__bind")));
    Message m;
    ASSERT_TRUE(c.receive(m)) << c.why();
    ASSERT_TRUE(isHeader(m, kReply));
    EXPECT_EQ(12u, m.size);
    CdrIn in = m.body();
    EXPECT_EQ(0u, in.ulong());
    EXPECT_EQ(22u, in.ulong());
    EXPECT_EQ(0u, in.ulong());

    // __unbind is never answered, whether a response is expected or not.
    ASSERT_TRUE(c.send(request(true, 23, true, _key, "__unbind")));
    EXPECT_TRUE(c.quiet());
    ASSERT_TRUE(c.send(request(true, 24, true, _key, "__bind")));
    ASSERT_TRUE(c.receive(m)) << c.why();
    in = m.body();
    EXPECT_EQ(0u, in.ulong());
    EXPECT_EQ(24u, in.ulong());
    EXPECT_EQ(0u, in.ulong());
    ASSERT_TRUE(c.send(say(25, _key, "bound")));
    expectSaid(c, 25, "bound");

    // A client that leaves while bound ends nothing of a shared server.
    c.close();
    expectServesNewClient();
}

TEST_F(EchoServerTest, AnswersPipelinedRequestsInOrder) {
    Conn c;
    ASSERT_TRUE(connect(c));
    std::string burst;
    for (uint32_t i = 0; i < 20; ++i)
        burst += i % 5 == 4 ? request(i % 2 == 0, 1000 + i, true, _key, "pid")
                            : say(1000 + i, _key, "pipelined " + std::to_string(i), i % 2 == 0);
    ASSERT_TRUE(c.send(burst));
    for (uint32_t i = 0; i < 20; ++i) {
        SCOPED_TRACE(i);
        if (i % 5 != 4) {
            expectSaid(c, 1000 + i, "pipelined " + std::to_string(i));
            continue;
        }
        Reply r;
        ASSERT_TRUE(receiveReply(c, r));
        EXPECT_EQ(1000 + i, r.requestId);
        EXPECT_EQ(static_cast<uint32_t>(_server.pid()), r.body.ulong());
    }
    EXPECT_TRUE(c.quiet(50));
}

TEST_F(EchoServerTest, OtherMessageTypes) {
    // Types the server never takes from a client: a MessageError each, and
    // the connection stays.
    Conn c;
    ASSERT_TRUE(connect(c));
    Message m;
    for (uint8_t type : {kReply, kLocateReply}) {
        SCOPED_TRACE(int(type));
        Cdr msg(true);
        msg.header(type).ulong(0).ulong(1).ulong(0);
        ASSERT_TRUE(c.send(msg.message()));
        ASSERT_TRUE(c.receive(m)) << c.why();
        EXPECT_TRUE(isHeader(m, kMessageError));
        EXPECT_EQ(0u, m.size);
    }
    // CancelRequest is taken and ignored.
    Cdr cancel(true);
    cancel.header(kCancelRequest).ulong(30);
    ASSERT_TRUE(c.send(cancel.message()));
    EXPECT_TRUE(c.quiet());
    // Shared memory is never granted: the request id back and a 0.
    Cdr shm(false);
    shm.header(kShmConnect).ulong(0x00000102).string("segment");
    ASSERT_TRUE(c.send(shm.message()));
    ASSERT_TRUE(c.receive(m)) << c.why();
    ASSERT_TRUE(isHeader(m, kShmConnectReply));
    EXPECT_EQ(8u, m.size);
    CdrIn in = m.body();
    EXPECT_EQ(0x00000102u, in.ulong());
    EXPECT_EQ(0u, in.ulong());
    ASSERT_TRUE(c.send(say(31, _key, "after the odd ones")));
    expectSaid(c, 31, "after the odd ones");

    // CloseConnection from the client ends the connection without a word.
    Cdr close(true);
    close.header(kCloseConnection);
    ASSERT_TRUE(c.send(close.message()));
    std::string rest;
    EXPECT_TRUE(c.closedWithin(kReplyMs, &rest)) << c.why();
    EXPECT_EQ(0u, rest.size());
}

TEST_F(EchoServerTest, UnknownMessageTypeGetsMessageErrorAndClose) {
    // Type 8 is the server's own reply type; anything above is unknown.
    // One of them carries a body that the server must skip first.
    const struct {
        uint8_t type;
        bool little;
        std::string body;
    } cases[] = {{8, true, ""}, {9, false, std::string(16, 'b')}, {255, true, "abcd"}};
    for (const auto& k : cases) {
        SCOPED_TRACE(int(k.type));
        Conn c;
        ASSERT_TRUE(connect(c));
        Cdr msg(k.little);
        msg.header(k.type).raw(k.body);
        ASSERT_TRUE(c.send(msg.message()));
        Message m;
        ASSERT_TRUE(c.receive(m)) << c.why();
        EXPECT_TRUE(isHeader(m, kMessageError));
        EXPECT_EQ(0u, m.size);
        EXPECT_EQ(12u, m.bytes.size());
        std::string rest;
        EXPECT_TRUE(c.closedWithin(kReplyMs, &rest)) << c.why();
        EXPECT_EQ(0u, rest.size());
    }
    expectServesNewClient();
}

TEST_F(EchoServerTest, SurvivesClientsThatVanish) {
    const std::string full = say(40, _key, "never finished");
    {
        SCOPED_TRACE("gone in the middle of the body");
        Conn c;
        ASSERT_TRUE(connect(c));
        ASSERT_TRUE(c.send(full.substr(0, full.size() - 7)));
    }
    expectServesNewClient();
    {
        SCOPED_TRACE("gone between header and body");
        Conn c;
        ASSERT_TRUE(connect(c));
        ASSERT_TRUE(c.send(full.substr(0, 12)));
    }
    expectServesNewClient();
    {
        SCOPED_TRACE("a 2 GiB body announced, then gone");
        Conn c;
        ASSERT_TRUE(connect(c));
        std::string header = full.substr(0, 12);
        header.replace(8, 4, std::string("\x00\x00\x00\x80", 4));  // little-endian 2^31
        ASSERT_TRUE(c.send(header + full.substr(12, 20)));
    }
    expectServesNewClient();
    {
        SCOPED_TRACE("reset while a large reply is being written");
        Conn c;
        ASSERT_TRUE(connect(c));
        ASSERT_TRUE(c.send(say(41, _key, std::string(2 << 20, 'r'))));
        // Once the reply has begun to come, reset without reading it.
        EXPECT_FALSE(c.quiet(kReplyMs));
        c.abort();
    }
    expectServesNewClient();
    {
        SCOPED_TRACE("a request followed by a close before the reply");
        Conn c;
        ASSERT_TRUE(connect(c));
        ASSERT_TRUE(c.send(say(42, _key, "nobody reads this")));
    }
    expectServesNewClient();
}

TEST_F(EchoServerTest, SurvivesGarbage) {
    {
        SCOPED_TRACE("text that is no GIOP");
        Conn c;
        ASSERT_TRUE(connect(c));
        ASSERT_TRUE(c.send("GET / HTTP/1.0\r\nHost: localhost\r\n\r\n"));
        EXPECT_TRUE(c.closedWithin(kReplyMs)) << c.why();
    }
    expectServesNewClient();
    {
        SCOPED_TRACE("GIOP of another version");
        Conn c;
        ASSERT_TRUE(connect(c));
        std::string m = say(50, _key, "1.2");
        m[5] = 2;
        ASSERT_TRUE(c.send(m));
        EXPECT_TRUE(c.closedWithin(kReplyMs)) << c.why();
    }
    expectServesNewClient();
    {
        SCOPED_TRACE("a key length far past the end of the message");
        Conn c;
        ASSERT_TRUE(connect(c));
        Cdr m(true);
        m.header(kRequest).ulong(0).ulong(51).octet(1).ulong(0x7ffffff0u).raw("ZEB");
        ASSERT_TRUE(c.send(m.message()));
        EXPECT_TRUE(c.closedWithin(kReplyMs)) << c.why();
    }
    expectServesNewClient();
    {
        SCOPED_TRACE("a locate request whose key runs past the end of the message");
        Conn c;
        ASSERT_TRUE(connect(c));
        Cdr m(true);
        m.header(kLocateRequest).ulong(53).ulong(0x40000000u).raw("ZEB");
        ASSERT_TRUE(c.send(m.message()));
        Message reply;
        ASSERT_TRUE(c.receive(reply)) << c.why();
        EXPECT_TRUE(isHeader(reply, kMessageError));
        EXPECT_EQ(0u, reply.size);
        EXPECT_TRUE(c.closedWithin(kReplyMs)) << c.why();
    }
    expectServesNewClient();
    {
        SCOPED_TRACE("a service context count far past the end of the message");
        Conn c;
        ASSERT_TRUE(connect(c));
        Cdr m(false);
        m.header(kRequest).ulong(0x10000000u).ulong(0).ulong(52);
        ASSERT_TRUE(c.send(m.message()));
        EXPECT_TRUE(c.closedWithin(kReplyMs)) << c.why();
    }
    expectServesNewClient();
}

TEST_F(EchoServerTest, ServesSixtyClientsAtOnce) {
    constexpr int kClients = 60;
    std::vector<std::unique_ptr<Conn>> clients;
    for (int i = 0; i < kClients; ++i) {
        clients.emplace_back(new Conn);
        ASSERT_TRUE(connect(*clients.back())) << "client " << i;
    }
    for (int i = 0; i < kClients; ++i)
        ASSERT_TRUE(clients[i]->send(say(500 + i, _key, "client " + std::to_string(i), i % 2)));
    for (int i = kClients - 1; i >= 0; --i) {
        SCOPED_TRACE(i);
        expectSaid(*clients[i], 500 + i, "client " + std::to_string(i));
    }
    clients.clear();
    expectServesNewClient();
}

}  // namespace

TEST_F(EchoServerTest, PortIsTheServersAloneAndFreeAgainAtOnceAfterIt) {
    const std::string port = std::to_string(_port);
    const std::string out = _dir.file("second.ior");
    ktest::Process::Options opts;
    opts.argv = {KELVANOR_ECHO_SERVER_BINARY, "-OAipaddr", "127.0.0.1", "-OAport", port, "-o", out};
    {
        // A second server on a port that is taken gives up with status 1.
        ktest::Process second;
        ASSERT_TRUE(second.start(opts)) << second.error();
        ASSERT_TRUE(second.wait(milliseconds(10000)));
        EXPECT_EQ(1, second.exitCode());
        EXPECT_EQ("Kelvanor: cannot listen on 127.0.0.1:" + port + ": Address already in use\n",
                  second.stdoutText());
    }
    // The first server ends while a client is connected, so its side of that
    // connection waits in TIME_WAIT; a server started again on the same port
    // must get it all the same.
    Conn c;
    ASSERT_TRUE(connect(c));
    ASSERT_TRUE(c.send(request(true, 1, true, _key, "pid")));
    Reply r;
    ASSERT_TRUE(receiveReply(c, r));
    _server.stop(9);
    _ready = false;
    ktest::Process again;
    ASSERT_TRUE(again.start(opts)) << again.error();
    bool up = ktest::pollUntil(
        [&] { return ktest::readFile(out).compare(0, 4, "IOR:") == 0 || !again.running(); },
        milliseconds(15000));
    EXPECT_TRUE(up && again.running()) << again.stdoutText() << again.stderrText();
    again.stop();
}
