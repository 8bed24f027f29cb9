// echo_server as a child, driven over raw loopback sockets in both byte orders.
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "echo_child.h"
#include "handcdr.h"
#include "rawconn.h"

namespace {

using namespace handcdr;
using std::chrono::milliseconds;

const char* const kRepoId = "IDL:Demo/Echo:1.0";
const char* const kInvObjref = "IDL:omg.org/CORBA/INV_OBJREF:1.0";
const char* const kBadOperation = "IDL:omg.org/CORBA/BAD_OPERATION:1.0";
const char* const kObjectNotExist = "IDL:omg.org/CORBA/OBJECT_NOT_EXIST:1.0";

std::string keyOf(const ktest::EchoChild& server) {
    return std::string(reinterpret_cast<const char*>(server.locator->object_key.get_buffer()),
                       server.locator->object_key.length());
}

std::string say(uint32_t id, const std::string& key, const std::string& text,
                bool little = true) {
    return request(little, id, true, key, "say").string(text).message();
}

std::string locate(bool little, uint32_t id, const std::string& key) {
    return Cdr(little).header(kLocateRequest).ulong(id).octets(key).message();
}

void expectRefused(Conn& c, uint32_t id, const char* repoId) {
    CdrIn body;
    ASSERT_TRUE(reply(c, id, 2, body));
    EXPECT_EQ(repoId, body.string());
    EXPECT_EQ(0u, body.ulong()) << "minor";
    EXPECT_EQ(1u, body.ulong()) << "COMPLETED_NO";
    EXPECT_TRUE(body.ok() && body.left() == 0);
}

void expectSaid(Conn& c, uint32_t id, const std::string& text) {
    CdrIn body;
    ASSERT_TRUE(reply(c, id, 0, body));
    EXPECT_EQ(text, body.string());
    EXPECT_TRUE(body.ok());
}

class EchoServerTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (!ktest::echoServerBuilt()) GTEST_SKIP() << "echo_server not built";
        ASSERT_TRUE(_server.ready()) << "no reference: " << _server.output();
        _port = _server.port;
        _key = keyOf(_server);
        _ready = true;
    }

    void TearDown() override {
        if (_ready) {
            EXPECT_TRUE(_server.running()) << "the server ended: " << _server.output();
        }
    }

    bool connect(Conn& c) { return c.open(_port); }

    void expectPid(Conn& c, uint32_t id) {
        CdrIn body;
        ASSERT_TRUE(reply(c, id, 0, body));
        EXPECT_EQ(static_cast<uint32_t>(_server.pid()), body.ulong());
    }

    void expectServesNewClient() {
        ASSERT_TRUE(_server.running()) << "the server ended: " << _server.output();
        Conn c;
        ASSERT_TRUE(connect(c));
        ASSERT_TRUE(c.send(request(true, 4242, true, _key, "pid").message()));
        expectPid(c, 4242);
    }

    ktest::EchoChild _server;
    uint16_t _port = 0;
    std::string _key;  // the persistent key of the published reference
    bool _ready = false;
};

TEST_F(EchoServerTest, AnswersPipelinedRequestsInEitherByteOrder) {
    Conn c;
    ASSERT_TRUE(connect(c));
    // One burst, answered in order; the key's byte order is apart from the message's.
    const std::string bigKey = persistentKey(false, "Demo::Echo", "echo");
    const struct {
        uint32_t id;
        bool little;
        const std::string& key;
        std::string text;
    } cases[] = {{1, true, _key, "hello"},
                 {0x01020304, false, _key, "from a big-endian host"},
                 {5, true, bigKey, "mixed"},
                 {6, false, _key, std::string(300000, 'x')}};
    std::string burst = request(false, 0x0a0b0c0d, true, _key, "pid").message();
    for (const auto& k : cases) burst += say(k.id, k.key, k.text, k.little);
    // A text whose count covers no NUL is not read in place but copied and ended.
    burst += request(true, 7, true, _key, "say").octets("unended").message();
    ASSERT_TRUE(c.send(burst));
    expectPid(c, 0x0a0b0c0d);
    for (const auto& k : cases) expectSaid(c, k.id, k.text);
    expectSaid(c, 7, "unended");
    EXPECT_TRUE(c.quiet(50));
}

TEST_F(EchoServerTest, LocateForwardsToShortKeyAndOthersAreRefused) {
    Conn c;
    ASSERT_TRUE(connect(c));
    ASSERT_TRUE(c.send(locate(true, 77, _key)));
    Message m;
    ASSERT_TRUE(next(c, kLocateReply, m));
    CdrIn in = m.body();
    EXPECT_EQ(77u, in.ulong());
    ASSERT_EQ(2u, in.ulong()) << "OBJECT_FORWARD";
    EXPECT_EQ(kRepoId, in.string());
    ASSERT_EQ(1u, in.ulong()) << "profiles";
    EXPECT_EQ(0u, in.ulong()) << "TAG_INTERNET_IOP";
    const std::string profile = in.octets();
    ASSERT_TRUE(in.ok());
    EXPECT_EQ(0u, in.left());

    // IIOP 1.0 at this server, the key by unique id; the pad byte's value is free.
    ASSERT_GE(profile.size(), 12u);
    const std::string key = profile.substr(profile.size() - 12);
    const uint32_t uid = CdrIn(key, key[0] != 0, 8).ulong();
    EXPECT_EQ(iiopProfile(profile[0] != 0, "127.0.0.1", _port, keyById(uid)),
              profile.substr(0, 3) + '\0' + profile.substr(4));

    // The short key is here and serves requests; the others find nothing.
    const struct {
        std::string key;
        uint32_t status;
    } cases[] = {{key, 1},
                 {"some-other-orb-key", 0},
                 {_key.substr(0, 14), 0},
                 {persistentKey(true, "Demo::Echo", "nobody"), 0},
                 {keyById(0x7ffffff0u), 0}};
    uint32_t id = 0x01000001;
    for (const auto& k : cases) {
        SCOPED_TRACE(k.status ? "OBJECT_HERE" : "UNKNOWN_OBJECT");
        ++id;
        ASSERT_TRUE(c.send(locate(id % 2 != 0, id, k.key)));
        ASSERT_TRUE(next(c, kLocateReply, m));
        EXPECT_EQ(8u, m.size);
        in = m.body();
        EXPECT_EQ(id, in.ulong());
        EXPECT_EQ(k.status, in.ulong());
    }
    ASSERT_TRUE(c.send(say(78, key, "by the short key")));
    expectSaid(c, 78, "by the short key");

    const std::string missing = persistentKey(true, "Demo::Echo", "nobody");
    const struct {
        bool little;
        std::string key, op;
        const char* refusal;
    } refusals[] = {
        {true, "0123456789abcdef", "say", kInvObjref},  // no "ZEB" magic: not ours at all
        {true, _key.substr(0, 14), "pid", kInvObjref},  // the magic, but the key ends early
        {true, _key, "frobnicate", kBadOperation},
        {true, missing, "say", kObjectNotExist},
        {false, persistentKey(false, "Demo::Nothing", "echo"), "say", kObjectNotExist},
    };
    id = 10;
    for (const auto& k : refusals) {
        SCOPED_TRACE(k.refusal);
        ASSERT_TRUE(c.send(request(k.little, ++id, true, k.key, k.op).string("x").message()));
        expectRefused(c, id, k.refusal);
        ASSERT_TRUE(c.send(say(++id, _key, "after")));
        expectSaid(c, id, "after");
    }

    // Without a response expected, neither failure is answered.
    for (const std::string& other : {missing, std::string("foreign-key-bytes")})
        ASSERT_TRUE(c.send(request(true, ++id, false, other, "note").string("n").message()));
    EXPECT_TRUE(c.quiet());
    ASSERT_TRUE(c.send(say(++id, _key, "still here")));
    expectSaid(c, id, "still here");
}

TEST_F(EchoServerTest, RepliesExactlyWhenTheRequestAsks) {
    Conn c;
    ASSERT_TRUE(connect(c));
    // The request's response flag decides, not the operation's IDL.
    uint32_t id = 100;
    for (const char* op : {"note", "say", "_is_a", "__bind"})
        ASSERT_TRUE(c.send(request(false, ++id, false, _key, op).string(kRepoId).message()));
    EXPECT_TRUE(c.quiet());
    CdrIn body;
    ASSERT_TRUE(c.send(request(true, ++id, true, _key, "note").string("hi").message()));
    ASSERT_TRUE(reply(c, id, 0, body));
    EXPECT_EQ(0u, body.left());

    // __bind gets an empty reply; __unbind none, even when one is expected.
    ASSERT_TRUE(c.send(request(true, 22, true, _key, "__bind").message()));
    EXPECT_TRUE(reply(c, 22, 0, body));
    EXPECT_EQ(0u, body.left());
    ASSERT_TRUE(c.send(request(true, 23, true, _key, "__unbind").message()));
    EXPECT_TRUE(c.quiet());
    ASSERT_TRUE(c.send(request(true, 24, true, _key, "__bind").message()));
    EXPECT_TRUE(reply(c, 24, 0, body));
    ASSERT_TRUE(c.send(say(25, _key, "bound")));
    expectSaid(c, 25, "bound");

    // A client that leaves while bound ends nothing of a shared server.
    c.close();
    expectServesNewClient();
}

// Type 8 is the server's own reply type and 9 is unknown.
TEST_F(EchoServerTest, OtherMessageTypes) {
    const struct {
        uint8_t type;
        bool little;
        std::string body;
        uint8_t answer;  // 0xff: none
        bool stays;
    } cases[] = {
        {kLocateReply, true, Cdr().ulong(1).ulong(0).bytes(), kMessageError, true},
        {kCancelRequest, true, Cdr().ulong(30).bytes(), 0xff, true},
        {kShmConnect, false, Cdr(false).ulong(0x102).string("segment").bytes(), kShmConnectReply,
         true},
        {kCloseConnection, true, "", 0xff, false},
        {8, true, "", kMessageError, false},
        {9, false, std::string(16, 'b'), kMessageError, false},
    };
    for (const auto& k : cases) {
        SCOPED_TRACE(int(k.type));
        Conn c;
        ASSERT_TRUE(connect(c));
        ASSERT_TRUE(c.send(giop(k.type, k.body, k.little)));
        Message m;
        if (k.answer == 0xff) {
            EXPECT_TRUE(!k.stays || c.quiet());
        } else {
            ASSERT_TRUE(next(c, k.answer, m));
            EXPECT_EQ(k.answer == kShmConnectReply ? 8u : 0u, m.size);
            CdrIn in = m.body();
            EXPECT_TRUE(k.answer != kShmConnectReply || (in.ulong() == 0x102 && in.ulong() == 0));
        }
        std::string rest;
        if (k.stays) {
            ASSERT_TRUE(c.send(say(31, _key, "after")));
            expectSaid(c, 31, "after");
        } else {  // closed without another word
            EXPECT_TRUE(c.closed(&rest)) << c.why();
            EXPECT_EQ(0u, rest.size());
        }
    }
    expectServesNewClient();
}

TEST_F(EchoServerTest, SurvivesClientsThatVanishOrSendGarbage) {
    const std::string full = say(40, _key, "never finished");
    const std::string huge = full.substr(0, 8) + std::string("\x00\x00\x00\x80", 4);
    std::string otherVersion = say(50, _key, "1.2");
    otherVersion[5] = 2;
    enum Then { kLeave, kClosed, kErrorAndClosed };
    const struct {
        const char* what;
        std::string bytes;
        Then then;
    } cases[] = {
        {"gone in the middle of the body", full.substr(0, full.size() - 7), kLeave},
        {"text that is no GIOP", "GET / HTTP/1.0\r\nHost: localhost\r\n\r\n", kClosed},
        {"GIOP of another version", otherVersion, kErrorAndClosed},
        {"a 2 GiB body announced by a client that stays", huge, kErrorAndClosed},
        {"a key length far past the end of the message",
         Cdr().header(kRequest).ulong(0).ulong(51).octet(1).ulong(0x7ffffff0u).raw("ZEB").message(),
         kClosed},
        {"a locate request whose key runs past the end of the message",
         Cdr().header(kLocateRequest).ulong(53).ulong(0x40000000u).raw("ZEB").message(),
         kErrorAndClosed},
    };
    for (const auto& k : cases) {
        SCOPED_TRACE(k.what);
        {
            Conn c;
            ASSERT_TRUE(connect(c));
            ASSERT_TRUE(c.send(k.bytes));
            Message m;
            if (k.then == kErrorAndClosed) {
                ASSERT_TRUE(next(c, kMessageError, m));
                EXPECT_EQ(0u, m.size);
            }
            if (k.then != kLeave) {
                EXPECT_TRUE(c.closed()) << c.why();
            }
        }
        expectServesNewClient();
    }
    {
        SCOPED_TRACE("reset while a large reply is being written");
        Conn c;
        ASSERT_TRUE(connect(c));
        ASSERT_TRUE(c.send(say(41, _key, std::string(2 << 20, 'r'))));
        EXPECT_FALSE(c.quiet(kReplyMs));
        c.abort();
    }
    expectServesNewClient();
}

}  // namespace

// Clients that stop mid-message or never read hold up no other client.
TEST_F(EchoServerTest, StalledClientsHoldNobodyUp) {
    const std::string full = say(1, _key, "a message that stops");
    std::string burst;  // 4 MiB of replies
    for (uint32_t i = 0; i < 64; ++i) burst += say(i, _key, std::string(64 << 10, 'x'));
    std::vector<std::string> plan(30, burst);
    plan.insert(plan.begin(), {full.substr(0, 6), full.substr(0, 12 + (full.size() - 12) / 2)});
    std::vector<std::unique_ptr<Conn>> crowd;
    for (const std::string& bytes : plan) {
        crowd.emplace_back(new Conn);
        ASSERT_TRUE(connect(*crowd.back()) && crowd.back()->send(bytes));
    }
    Conn c;
    ASSERT_TRUE(connect(c));
    for (uint32_t id = 100; id < 150; ++id) {
        ASSERT_TRUE(c.send(request(true, id, true, _key, "pid").message()));
        expectPid(c, id);
    }
    EXPECT_TRUE(crowd[0]->quiet(0) && crowd[1]->quiet(0));
    Message m;
    for (int i = 0; i < 64; ++i) ASSERT_TRUE(crowd.back()->receive(m)) << i;
}

TEST(EchoServerLimits, IdleConnectionsAreClosed) {
    ktest::EchoChild server(ktest::echoServerArgv({"-OAidle", "1"}));
    ASSERT_TRUE(server.ready()) << server.output();
    const std::string key = keyOf(server);
    Conn silent, stopped, talking;
    ASSERT_TRUE(silent.open(server.port) && stopped.open(server.port) && talking.open(server.port));
    ASSERT_TRUE(stopped.send(say(1, key, "unfinished").substr(0, 20)));
    const auto start = std::chrono::steady_clock::now();
    for (uint32_t id = 0; std::chrono::steady_clock::now() - start < milliseconds(2500); ++id) {
        ASSERT_TRUE(talking.send(request(true, id, true, key, "pid").message()));
        Message m;
        ASSERT_TRUE(talking.receive(m)) << talking.why();
        std::this_thread::sleep_for(milliseconds(300));
    }
    EXPECT_TRUE(silent.closed()) << silent.why();
    EXPECT_TRUE(stopped.closed()) << stopped.why();
}

// Out of descriptors the listener stays readable: accepting pauses, not spins.
TEST(EchoServerLimits, OutOfDescriptorsPausesAcceptingAndRecovers) {
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "needs a build without sanitizers";
#endif
    ktest::EchoChild server({"/bin/sh", "-c",
                             "ulimit -n 16 && exec \"$0\" -OAipaddr 127.0.0.1 -OAmaxconn 100",
                             KELVANOR_ECHO_SERVER_BINARY});
    ASSERT_TRUE(server.ready()) << server.output();
    const std::string key = keyOf(server);
    std::vector<std::unique_ptr<Conn>> crowd;
    for (int i = 0; i < 24; ++i) {
        crowd.emplace_back(new Conn);
        ASSERT_TRUE(crowd.back()->open(server.port)) << i;
    }
    std::this_thread::sleep_for(milliseconds(1000));
    const std::string out = server.output();
    size_t failures = 0;
    for (size_t at = out.find("accept: "); at != std::string::npos; at = out.find("accept: ", at + 1))
        ++failures;
    EXPECT_GT(failures, 0u) << out;
    EXPECT_LT(failures, 40u);
    crowd.clear();
    Conn c;
    ASSERT_TRUE(c.open(server.port)) << server.output().substr(0, 2000);
    ASSERT_TRUE(c.send(request(true, 7, true, key, "pid").message()));
    Message m;
    ASSERT_TRUE(c.receive(m)) << c.why();
    EXPECT_EQ(kReply, m.type);
    EXPECT_TRUE(server.running());
}
