// Dynamic requests to a scripted GIOP peer; contexts; free_out_memory.
#include "request.h"

#include <gtest/gtest.h>

#include "any.h"
#include "context.h"
#include "fake_giop_server.h"
#include "mstrm.h"
#include "orb.h"
#include "orb_loopback.h"
#include "zebreq.h"

namespace {

std::string text(const CORBA_Any& a) {
    const char* s = *static_cast<char**>(a.value());
    return s ? s : "";
}

CORBA_Context* contextOf(const char* name, std::initializer_list<const char*> pairs) {
    CORBA_Context* c = new CORBA_Context(name);
    for (auto p = pairs.begin(); p != pairs.end(); p += 2)
        c->set_one_value(p[0], CORBA_Any() <<= p[1]);
    return c;
}

std::vector<std::string> names(CORBA_NVList* l) {
    std::vector<std::string> out;
    for (CORBA::ULong i = 0; i < l->count(); ++i)
        out.push_back(CORBA_NamedValue_var(l->item(i))->name());
    CORBA::release(l);
    return out;
}

}  // namespace

class DiiPeer : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(peer.ok()); }
    // A "say" of text (echoed by the peer), its result a string.
    CORBA_Request* say(const char* text) {
        CORBA_Request* r = obj->_request("say");
        r->add_in_arg() <<= text;
        r->return_value() <<= "";
        return r;
    }
    std::string call(const char* said) {
        CORBA_Request_var r(say(said));
        r->invoke();
        return text(r->return_value());
    }
    ktest::FakeGiopServer peer{ktest::FakeGiopServer::Mode::Serve};
    CORBA_Object_var obj{ktest::loopbackOrb()->string_to_object(
        handcdr::iorText(true, "IDL:Demo/Echo:1.0", peer.port(), "dii").c_str())};
};

TEST_F(DiiPeer, ContextPairsFollowTheArgumentsAndReadBack) {
    CORBA_Context* ctx = contextOf("app", {"x", "1", "y", "2"});
    CORBA_Request_var r(say("hi"));
    r->ctx(ctx);
    r->invoke();
    EXPECT_EQ(text(r->return_value()), "hi");
    handcdr::CdrIn args = peer.messages().back().args;
    EXPECT_EQ(args.string(), "hi");
    EXPECT_EQ(args.ulong(), 2u);
    for (const char* s : {"x", "1", "y", "2"}) EXPECT_EQ(args.string(), s);
    EXPECT_EQ(args.left(), 0u);

    CORBA_MarshalOutBuffer out;
    out.owns_buffer(1);
    out << ctx;
    CORBA::release(ctx);
    CORBA_MarshalInBuffer in(out.buffer(), out.length());
    in >> ctx;
    EXPECT_EQ(names(CORBA_NVList::_duplicate(&ctx->values())),
              (std::vector<std::string>{"x", "y"}));
    EXPECT_EQ(text(*CORBA_NamedValue_var(ctx->values().item(1))->value()), "2");
    CORBA::release(ctx);
}

TEST_F(DiiPeer, RefusedRequestsSendNothingAndTheNextCallWorks) {
    call("bound");
    const size_t before = peer.messages().size();
    CORBA_Request_var oneway(obj->_request("note"));
    oneway->add_out_arg() <<= CORBA::Long(0);
    EXPECT_THROW(oneway->send_oneway(), CORBA_BAD_PARAM);
    CORBA_Context* ctx = contextOf("", {"x", "1"});
    ctx->set_one_value("n", CORBA_Any() <<= CORBA::Long(3));
    CORBA_Request_var badContext(say("ctx"));
    badContext->ctx(ctx);
    CORBA::release(ctx);
    EXPECT_THROW(badContext->invoke(), CORBA_BAD_CONTEXT);
    EXPECT_EQ(call("after"), "after");
    EXPECT_EQ(peer.messages().size(), before + 1);
}

TEST_F(DiiPeer, DeferredAndUnlinkedRepliesReachTheirRequests) {
    for (bool deferred : {false, true}) {
        CORBA_Request_var r(obj->_request("refuse"));
        deferred ? (r->send_deferred(), r->get_response()) : r->invoke();
        auto* u = _CORBA_UNLINKED_UserException::_narrow(r->env()->exception());
        ASSERT_NE(u, nullptr) << deferred;
        EXPECT_STREQ(u->id(), "IDL:Nobody/Home:1.0");
    }
    EXPECT_EQ(call("after"), "after");  // the member left unread spoils nothing

    // The peer answers "held" just before the next request's own reply.
    CORBA_Request_var held(say("held"));
    held->send_deferred();
    EXPECT_EQ(call("now"), "now");
    ASSERT_EQ(static_cast<ZEBRequest*>(held.in())->state(), ZEBRequest::DONE);
    held->get_response();
    EXPECT_EQ(text(held->return_value()), "held");
    EXPECT_THROW(held->get_response(), CORBA_BAD_INV_ORDER);
}

TEST(CORBAContext, ScopesAndPatterns) {
    CORBA_Context* root = contextOf("", {"a", "r"});
    CORBA_Context* app = nullptr;
    root->create_child("app", app);
    CORBA::release(root);  // the child keeps its parent
    for (const char* n : {"ab", "ac", "b", "ab"}) app->set_one_value(n, CORBA_Any() <<= n);
    CORBA_NVList* l = nullptr;
    // A "*" and its absence both compare a prefix.
    for (const char* p : {"a*", "a"}) {
        app->get_values("app", CORBA::CTX_RESTRICT_SCOPE, p, l);
        EXPECT_EQ(names(l), (std::vector<std::string>{"ab", "ac", "ab"}));
    }
    // The walk goes to the root, whose list is what comes back.
    app->get_values("app", 0, "a", l);
    EXPECT_EQ(names(l).size(), 0u);
    app->get_values(nullptr, 0, "a", l);
    EXPECT_EQ(names(l), (std::vector<std::string>{"a"}));
    app->delete_values("a*");
    app->get_values("app", CORBA::CTX_RESTRICT_SCOPE, "", l);
    EXPECT_EQ(names(l), (std::vector<std::string>{"b"}));
    CORBA::release(app);
}

TEST(CORBANVList, FreeOutMemoryDropsTwoReferencesAndNoMore) {
    CORBA_NVList list(0);
    CORBA_NamedValue_var alone(list.add_value("a", CORBA_Any(), CORBA::ARG_OUT));
    CORBA_NamedValue_var held(list.add_value("h", CORBA_Any(), CORBA::ARG_INOUT));
    // The first release frees a's value: the second must not touch it.
    CORBA_Any* kept = CORBA_Any::_duplicate(CORBA_Any::_duplicate(held->value()));
    list.free_out_memory();
    EXPECT_EQ(alone->value(), nullptr);
    EXPECT_EQ(held->value(), nullptr);
    EXPECT_EQ(kept->_deref(), 0);
    delete kept;
}
