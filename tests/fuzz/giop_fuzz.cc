// GIOP messages from a connection, read by the real framing code over a
// socket pair whose far end has sent the input and closed. The first byte
// chooses the side: a server connection (ZEBBOAClient serving an echo
// object, its replies going back into the pair), or a client reading
// replies and locate replies as the stub and the connection do.
#include <cstdint>

#include <unistd.h>

#include "boa.h"
#include "common.h"
#include "echo.h"
#include "except.h"
#include "giop.h"
#include "orb.h"
#include "zebbclnt.h"
#include "zebglob.h"
#include "zebstrm.h"

namespace {

class EchoServant : public _sk_Demo::_sk_Echo {
public:
    explicit EchoServant(const char* name) : _sk_Echo(name) {}
    char* say(const char* s) override { return CORBA::string_dup(s); }
    CORBA::Long pid() override { return 7; }
    void note(const char*) override {}
};

// Upper bound of messages one input may hold; the data runs out long before.
constexpr int kMaxMessages = 4096;

void serve(int fd) {
    ZEBBOAClient* client = new ZEBBOAClient(fd, ZEBGlobalTable::_boa);
    for (int i = 0; i < kMaxMessages; ++i)
        if (client->inputReady(fd) < 0) return;  // it has deleted itself
    delete client;
}

void readReplies(int fd) {
    ZEBIIOPstream s;
    s.attach(fd);
    TBistream& in = s;
    try {
        for (int i = 0; i < kMaxMessages; ++i) {
            s.receiveMessage(0);
            switch (s.msgHeader().message_type) {
            case IIOP::Reply: {
                IIOP::ReplyHeader reply;
                in >> reply;
                if (reply.reply_status == IIOP::USER_EXCEPTION ||
                    reply.reply_status == IIOP::SYSTEM_EXCEPTION) {
                    CORBA_Exception* e = nullptr;
                    in >> e;
                    delete e;
                } else if (reply.reply_status == IIOP::LOCATION_FORWARD) {
                    IOP::IOR ior;  // its profiles and key are the ior and objkey targets'
                    in >> ior;
                } else {
                    CORBA_String_var said;
                    in >> said.out();
                }
                break;
            }
            case IIOP::LocateReply: {
                IIOP::LocateReplyHeader reply;
                in >> reply;
                if (reply.locate_status == IIOP::OBJECT_FORWARD) {
                    IOP::IOR ior;
                    in >> ior;
                }
                break;
            }
            default:
                s.discardCurMsg();
                break;
            }
        }
    } catch (const CORBA_SystemException&) {
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    kfuzz::init();
    int argc = 0;
    CORBA_BOA* boa = kfuzz::orb()->BOA_init(argc, nullptr);
    // Objects for the keys of the seed inputs: one named, one transient.
    static EchoServant named("fuzz");
    static EchoServant unnamed(nullptr);
    boa->obj_is_ready(&named, nullptr);
    boa->obj_is_ready(&unnamed, nullptr);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    int mine = -1, peer = -1;
    if (!kfuzz::socketPairWith(data + 1, size - 1, &mine, &peer)) return 0;
    if (data[0] & 1) {
        readReplies(mine);  // the stream closes mine
    } else {
        serve(mine);  // the connection closes mine
    }
    ::close(peer);
    return 0;
}
