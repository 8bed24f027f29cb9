// Writes the seed inputs of the fuzz targets with the real encoders:
// fuzz_seeds <corpus directory>, which gets one folder per target. The
// files are kept in the repository; run this again after a change of a
// wire or file form.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "any.h"
#include "boa.h"
#include "common.h"
#include "dsassoc.h"
#include "dsdict.h"
#include "dslist.h"
#include "dsordcltn.h"
#include "echo.h"
#include "except.h"
#include "giop.h"
#include "impldef.h"
#include "iorstr.h"
#include "mstrm.h"
#include "nvlist.h"
#include "orb.h"
#include "sequence.h"
#include "tbipcstr.h"
#include "tbstring.h"
#include "typecode.h"
#include "vexsrv.h"
#include "zebstrm.h"
#include "zebglob.h"
#include "zebstring.h"
#include "zeboid.h"

namespace {

std::string root;

void save(const std::string& target, const std::string& name, const std::string& bytes) {
    std::string dir = root + "/" + target;
    ::mkdir(dir.c_str(), 0755);
    std::ofstream(dir + "/" + name, std::ios::binary) << bytes;
}

std::string octets(const CORBA_OctetSequence& s) {
    return std::string(reinterpret_cast<const char*>(s.get_buffer()), s.length());
}

// What a scratch stream wrote, from its alignment origin.
std::string written(const ZEBIIOPstream& s) { return std::string(s.outData(), s.outLength()); }

// A script of the CDR and buffer targets: its length, then the ops.
std::string script(std::initializer_list<uint8_t> ops) {
    std::string s(1, static_cast<char>(ops.size()));
    for (uint8_t op : ops) s += static_cast<char>(op);
    return s;
}

CORBA_OctetSequence* echoKey() { return ZEBPersistentId("Demo::Echo", "fuzz").convert(); }

IOP::IOR sampleIOR() {
    IIOP::ObjectLocator loc;
    loc.host = CORBA::string_dup("127.0.0.1");
    loc.port = 4711;
    std::unique_ptr<CORBA_OctetSequence> key(echoKey());
    loc.object_key = *key;
    std::unique_ptr<CORBA_OctetSequence> profile(loc.convert());
    IOP::IOR ior;
    ior.type_id = CORBA::string_dup("IDL:Demo/Echo:1.0");
    ior.profiles.length(1);
    ior.profiles[0].tag = IOP::TAG_INTERNET_IOP;
    ior.profiles[0].profile_data = *profile;
    return ior;
}

CORBA_CreationImplDef sampleDef(const char* iface, const char* obj, unsigned nargs) {
    CORBA_StringSequence args;
    args.length(nargs);
    for (unsigned i = 0; i < nargs; ++i) args[i] = "argument";
    return CORBA_CreationImplDef(iface, obj, CORBA_OctetSequence(), "/bin/sh",
                                 CORBA_CreationImplDef::SHARED_SERVER, args);
}

// ------------------------------------------------------------------ CDR

// A struct that holds one member TypeCode twice: an indirection.
CORBA_TypeCode* sharedMemberStruct() {
    const ZEBTCMember inner[] = {{"l", CORBA::_tc_long, nullptr}};
    CORBA_TypeCode_var s = new CORBA_TypeCode(CORBA::tk_struct, "IDL:S:1.0", "S", inner, 1, 0);
    const ZEBTCMember twice[] = {{"a", s, nullptr}, {"b", s, nullptr}};
    return new CORBA_TypeCode(CORBA::tk_struct, "IDL:T:1.0", "T", twice, 2, 0);
}

void cdrSeeds() {
    auto one = [](const char* name, std::initializer_list<uint8_t> ops, auto&& write) {
        ZEBIIOPstream s;
        s.newOutEncapsulation();
        TBostream& out = s;
        write(out);
        save("cdr", name, script(ops) + written(s));
    };
    one("primitives", {0}, [](TBostream& o) {
        o << 'c' << static_cast<unsigned char>(200) << static_cast<short>(-2)
          << static_cast<unsigned short>(3) << -4L << 5UL << 1.5f << 2.25 << 'z';
    });
    one("strings", {1, 1 | 32, 3 | 96}, [](TBostream& o) {
        o << "hello" << "a longer text than the target" << "limited";
    });
    one("sequences", {4, 5}, [](TBostream& o) {
        CORBA_OctetSequence oct(3);
        oct.length(3);
        oct[0] = 1;
        oct[1] = 2;
        oct[2] = 3;
        CORBA_StringSequence strs;
        strs.length(2);
        strs[0] = "one";
        strs[1] = "two";
        o << oct << strs;
    });
    one("ior", {6, 7}, [](TBostream& o) {
        IOP::IOR ior = sampleIOR();
        o << ior;
        IIOP::ObjectLocator loc;
        loc.host = CORBA::string_dup("localhost");
        loc.port = 80;
        o << loc;
    });
    one("headers", {8, 9, 10, 11}, [](TBostream& o) {
        IIOP::RequestHeader rq;
        rq.service_context.length(1);
        rq.service_context[0].context_id = 7;
        rq.request_id = 3;
        rq.response_expected = 1;
        std::unique_ptr<CORBA_OctetSequence> key(echoKey());
        rq.object_key = *key;
        rq.operation = CORBA::string_dup("say");
        IIOP::ReplyHeader rp;
        rp.request_id = 3;
        IIOP::LocateRequestHeader lq;
        lq.request_id = 4;
        lq.object_key = *key;
        IIOP::LocateReplyHeader lr;
        lr.request_id = 4;
        lr.locate_status = IIOP::OBJECT_HERE;
        o << rq << rp << lq << lr;
    });
    one("exception", {13, 20}, [](TBostream& o) {
        o << CORBA_BAD_PARAM(3, CORBA::COMPLETED_MAYBE);
        o << 0UL;
    });
    one("impldef", {14, 18}, [](TBostream& o) {
        CORBA_CreationImplDef d = sampleDef("Demo::Echo", "fuzz", 2);
        o << &d;
        CORBA_ImplementationDef plain("Demo::Echo", "other", CORBA_OctetSequence());
        o << &plain;
    });
    one("object", {15, 19}, [](TBostream& o) {
        IOP::IOR ior = sampleIOR();
        o << ior;
        ZEBString("text").write(o);
    });
    one("typecodes", {22, 22}, [](TBostream& o) {
        CORBA_TypeCode_var t = sharedMemberStruct();
        CORBA_Any one;
        one <<= CORBA::Long(1);
        const ZEBTCMember arms[] = {{"x", CORBA::_tc_long, &one}, {"y", CORBA::_tc_string, nullptr}};
        CORBA_TypeCode_var u =
            new CORBA_TypeCode("IDL:U:1.0", "U", CORBA::_tc_long, arms, 2, 0);
        o << t.operator->() << u.operator->();
    });
    one("anys", {23, 23, 23}, [](TBostream& o) {
        const char* colors[] = {"red", "green"};
        CORBA_TypeCode_var e = new CORBA_TypeCode("IDL:C:1.0", "C", colors, 2, 0);
        CORBA_TypeCode_var seq = new CORBA_TypeCode(CORBA::tk_sequence, 0, e, 0);
        CORBA_MarshalOutBuffer b;
        b << 2UL << 0UL << 1UL;
        CORBA_Any enums(CORBA_TypeCode::_duplicate(seq), b);
        CORBA_Any inner;
        inner <<= "text";
        CORBA_Any nested;
        nested <<= inner;
        CORBA_Any record(CORBA::_tc_NamedValue, new CORBA_NamedValue("n", &inner, 1), 1);
        o << enums << nested << record;
    });
    one("stdtypecodes", {21, 21}, [](TBostream& o) {
        // The shared member again, and a union in an Any, as other ORBs
        // write them.
        ZEBGlobalTable::std_typecodes = 1;
        CORBA_TypeCode_var t = sharedMemberStruct();
        CORBA_Any one;
        one <<= CORBA::Long(1);
        const ZEBTCMember arms[] = {{"x", t, &one}, {"y", CORBA::_tc_string, nullptr}};
        CORBA_TypeCode_var u =
            new CORBA_TypeCode("IDL:U:1.0", "U", CORBA::_tc_long, arms, 2, 0);
        CORBA_MarshalOutBuffer b;
        b << 1L << 2L << 3L;
        CORBA_Any value(CORBA_TypeCode::_duplicate(u), b);
        o << t.operator->() << value;
        o << u.operator->() << value;
        ZEBGlobalTable::std_typecodes = 0;
    });
    one("arrays", {16 | 64}, [](TBostream& o) {
        short h[6] = {1, 2, 3, 4, 5, 6};
        long l[2] = {7, 8};
        double d[2] = {9.5, 10.5};
        unsigned char b[10] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10};
        o.put(h, 6);
        o.put(l, 2);
        o.put(d, 2);
        o.put(b, 10);
    });
}

// ------------------------------------------------------------------ GIOP

// A whole message: header, then what body() writes; the size patched in.
template <class F>
std::string message(IIOP::MsgType type, F&& body) {
    ZEBIIOPstream s;
    s.newOutEncapsulation();
    s.writeMessageHeader(type);
    TBostream& out = s;
    body(out);
    std::string m = written(s);
    CORBA::ULong size = static_cast<CORBA::ULong>(m.size() - 12);
    std::memcpy(&m[8], &size, 4);
    return m;
}

std::string request(const char* op, const CORBA_OctetSequence& key, const char* arg) {
    return message(IIOP::Request, [&](TBostream& o) {
        IIOP::RequestHeader rq;
        rq.request_id = 1;
        rq.response_expected = 1;
        rq.object_key = key;
        rq.operation = CORBA::string_dup(op);
        o << rq;
        if (arg) o << arg;
    });
}

void giopSeeds() {
    std::unique_ptr<CORBA_OctetSequence> key(echoKey());
    std::unique_ptr<CORBA_OctetSequence> shortKey(ZEBKeyId(1).convert());
    const std::string server(1, '\0'), client(1, '\1');
    save("giop", "request", server + request("say", *key, "hello"));
    save("giop", "bind", server + request("__bind", *key, nullptr) +
                             request("pid", *key, nullptr) + request("__unbind", *key, nullptr));
    save("giop", "locate", server + message(IIOP::LocateRequest, [&](TBostream& o) {
        IIOP::LocateRequestHeader lq;
        lq.request_id = 2;
        lq.object_key = *key;
        o << lq;
    }) + request("say", *shortKey, "short key"));
    save("giop", "cancel", server + message(IIOP::CancelRequest, [](TBostream& o) {
        IIOP::CancelRequestHeader c;
        c.request_id = 9;
        o << c;
    }) + message(IIOP::CloseConnection, [](TBostream&) {}));
    save("giop", "reply", client + message(IIOP::Reply, [](TBostream& o) {
        IIOP::ReplyHeader rp;
        rp.request_id = 1;
        o << rp << "hello";
    }) + message(IIOP::Reply, [](TBostream& o) {
        IIOP::ReplyHeader rp;
        rp.request_id = 2;
        rp.reply_status = IIOP::SYSTEM_EXCEPTION;
        o << rp << CORBA_OBJECT_NOT_EXIST(0, CORBA::COMPLETED_NO);
    }));
    save("giop", "forward", client + message(IIOP::LocateReply, [](TBostream& o) {
        IIOP::LocateReplyHeader lr;
        lr.request_id = 0;
        lr.locate_status = IIOP::OBJECT_FORWARD;
        o << lr << sampleIOR();
    }) + message(IIOP::Reply, [](TBostream& o) {
        IIOP::ReplyHeader rp;
        rp.request_id = 3;
        rp.reply_status = IIOP::LOCATION_FORWARD;
        o << rp << sampleIOR();
    }));
}

// ----------------------------------------------------- references, keys

void iorSeeds() {
    CORBA_String_var text(iorToString(sampleIOR()));
    save("ior", "text", std::string(1, '\0') + text.in());
    IOP::IOR nil;
    CORBA_String_var nilText(iorToString(nil));
    save("ior", "nil", std::string(1, '\0') + nilText.in());
    ZEBIIOPstream s;
    s.newOutEncapsulation();
    TBostream& out = s;
    out << static_cast<unsigned char>(IIOP::BYTE_ORDER) << sampleIOR();
    save("ior", "encapsulation", std::string(1, '\1') + written(s));
    std::unique_ptr<CORBA_OctetSequence> profile(sampleIOR().profiles[0].profile_data.length()
                                                     ? new CORBA_OctetSequence(
                                                           sampleIOR().profiles[0].profile_data)
                                                     : nullptr);
    save("ior", "profile", std::string(1, '\2') + octets(*profile));
}

void objkeySeeds() {
    std::unique_ptr<CORBA_OctetSequence> k(ZEBPersistentId("Demo::Echo", "fuzz").convert());
    save("objkey", "persistent", octets(*k));
    k.reset(ZEBPersistentId("Demo::Echo", "").convert());
    save("objkey", "persistent-empty", octets(*k));
    k.reset(ZEBTransientId("Demo::Echo", 12, 345678).convert());
    save("objkey", "transient", octets(*k));
    k.reset(ZEBKeyId(1).convert());
    save("objkey", "short", octets(*k));
    CORBA_OctetSequence data(2);
    data.length(2);
    data[0] = 'n';
    data[1] = 's';
    k.reset(ZEBServiceId("NameService", data).convert());
    save("objkey", "service", octets(*k));
}

// --------------------------------------------------------- base streams

std::string ipcWritten(const TBipcbuf& b) { return std::string(b.write_base, b.writeCount()); }

void ipcbufSeeds() {
    {
        TBipcbuf b(256, 0);
        TBipcstream s(&b);
        s << 'c' << static_cast<unsigned char>(7) << static_cast<short>(-3) << 42 << 99UL << 0.5f
          << 0.25;
        s << "text" << "limited string";
        s.put("raw", 3);
        save("ipcbuf", "mixed", script({0, 1, 2 | 0x80, 3 | 0x00}) + ipcWritten(b));
    }
    {
        TBipcbuf b(256, 0);
        TBipcstream s(&b);
        short h[3] = {1, 2, 3};
        long l[3] = {4, 5, 6};
        double d[3] = {7, 8, 9};
        s.put(h, 3);
        s.put(l, 3);
        s.put(d, 3);
        save("ipcbuf", "arrays", script({4 | 0x30}) + ipcWritten(b));
    }
}

template <class W>
void objstreamSeed(const std::string& name, W&& write) {
    TBipcbuf b(1024, 0);
    TBipcstream bin(&b);
    write(static_cast<TBostream&>(bin));
    save("objstream", name + "-binary", std::string(1, '\0') + ipcWritten(b));
    std::ostringstream text;
    TBostream txt(text);
    write(txt);
    save("objstream", name + "-text", std::string(1, '\1') + text.str());
}

void objstreamSeeds() {
    objstreamSeed("dictionary", [](TBostream& o) {
        DSDictionary d;
        d.addAssoc(*new ZEBString("Demo::Echo"), *new ZEBUniqueId(5));
        d.addAssoc(*new ZEBString("other"), *new DSWrapper(nullptr));
        o << static_cast<const TBTransObject*>(&d);
    });
    objstreamSeed("shared", [](TBostream& o) {
        // One element twice: the second time as a back reference.
        DSOrderedCltn c(4);
        ZEBString* s = new ZEBString("shared");
        c.add(*s);
        c.add(*s);
        DSLinkedList* l = new DSLinkedList;
        l->add(*new ZEBUniqueId(9));
        l->add(*new ZEBString("linked"));
        c.add(*l);
        TBString t("plain");
        o << static_cast<const TBTransObject*>(&c) << static_cast<const TBTransObject*>(&t);
        // After the first write the class numbers are known: "#" tags.
        o << static_cast<const TBTransObject*>(&c);
    });
    objstreamSeed("set", [](TBostream& o) {
        DSSet set;
        set.add(*new ZEBString("a"));
        set.add(*new ZEBString("b"));
        set.add(*new ZEBUniqueId(1));
        o << static_cast<const TBTransObject*>(&set);
        o << static_cast<const TBTransObject*>(nullptr);
    });
}

// ------------------------------------------------------------ repository

void repoSeeds() {
    char templ[] = "/tmp/kelvanor-seeds-XXXXXX";
    if (!mkdtemp(templ)) std::abort();
    std::string dir = templ, file = dir + "/impl_rep";
    setenv("KELVANOR_IMPL_PATH", dir.c_str(), 1);
    setenv("KELVANOR_IMPL_NAME", "impl_rep", 1);
    auto grab = [&](const char* name) {
        std::ifstream in(file, std::ios::binary);
        std::ostringstream all;
        all << in.rdbuf();
        save("repo", name, all.str());
    };
    {
        VEXImpl repo(0);
        repo.unregister_all();
        grab("empty");
        CORBA_CreationImplDef one = sampleDef("Demo::Echo", "fuzz", 0);
        CORBA::release(repo.reg_implementation(&one));
        grab("one");
        CORBA_CreationImplDef two = sampleDef("Demo::Echo", "second", 3);
        two.env.length(1);
        two.env[0] = "HOME=/";
        CORBA::release(repo.reg_implementation(&two));
        CORBA_CreationImplDef three = sampleDef("Other::Iface", "third", 1);
        CORBA::release(repo.reg_implementation(&three));
        grab("three");
    }
    ::unlink(file.c_str());
    ::rmdir(dir.c_str());
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: fuzz_seeds <corpus directory>\n");
        return 2;
    }
    root = argv[1];
    ::mkdir(root.c_str(), 0755);
    kfuzz::orb();
    cdrSeeds();
    giopSeeds();
    iorSeeds();
    objkeySeeds();
    ipcbufSeeds();
    objstreamSeeds();
    repoSeeds();
    return 0;
}
