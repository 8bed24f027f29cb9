// Dynamic requests against a scripted GIOP peer: the context after the
// arguments as string pairs, requests refused before a byte goes out, a user
// exception of no linked class, a deferred reply read by a synchronous call;
// and the matching rules of the context tree and the named value lists.
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

using Fake = ktest::FakeGiopServer;

CORBA_Object* fakeAt(const Fake& f) {
    std::string ior = handcdr::iorText(true, "IDL:Demo/Echo:1.0", f.port(), "dii");
    return ktest::loopbackOrb()->string_to_object(ior.c_str());
}

// A "say" of text, its result a string.
CORBA_Request* say(CORBA_Object* obj, const char* text) {
    CORBA_Request* r = obj->_request("say");
    r->add_in_arg() <<= text;
    r->return_value() <<= "";
    return r;
}

std::string text(const CORBA_Any& a) {
    const char* s = *static_cast<char**>(a.value());
    return s ? s : "";
}

CORBA_Context* contextOf(const char* name, std::initializer_list<const char*> pairs) {
    CORBA_Context* c = new CORBA_Context(name);
    for (auto p = pairs.begin(); p != pairs.end(); p += 2) {
        CORBA_Any v;
        v <<= p[1];
        c->set_one_value(p[0], v);
    }
    return c;
}

std::vector<std::string> names(CORBA_NVList* l) {
    std::vector<std::string> out;
    for (CORBA::ULong i = 0; i < l->count(); ++i) {
        CORBA_NamedValue_var nv(l->item(i));
        out.push_back(nv->name());
    }
    CORBA::release(l);
    return out;
}

}  // namespace

TEST(CORBARequest, ContextPairsFollowTheArgumentsAndReadBack) {
    Fake f(Fake::Mode::Serve);
    ASSERT_TRUE(f.ok());
    CORBA_Object_var obj(fakeAt(f));
    CORBA_Context* ctx = contextOf("app", {"x", "1", "y", "2"});
    CORBA_Request_var r(say(obj, "hi"));
    r->ctx(ctx);
    r->invoke();
    EXPECT_EQ(text(r->return_value()), "hi");
    handcdr::CdrIn args = f.messages().back().args;
    EXPECT_EQ(args.string(), "hi");
    EXPECT_EQ(args.ulong(), 2u);
    for (const char* s : {"x", "1", "y", "2"}) EXPECT_EQ(args.string(), s);
    EXPECT_TRUE(args.ok());
    EXPECT_EQ(args.left(), 0u);

    CORBA_MarshalOutBuffer out;
    out << ctx;
    CORBA_MarshalInBuffer in(out.buffer(), out.length());
    CORBA_Context* back = nullptr;
    in >> back;
    EXPECT_EQ(names(CORBA_NVList::_duplicate(&back->values())),
              (std::vector<std::string>{"x", "y"}));
    CORBA_NamedValue_var y(back->values().item(1));
    EXPECT_EQ(text(*y->value()), "2");
    CORBA::release(back);
    CORBA::release(ctx);
}

TEST(CORBARequest, RefusedRequestsSendNothingAndTheNextCallWorks) {
    Fake f(Fake::Mode::Serve);
    ASSERT_TRUE(f.ok());
    CORBA_Object_var obj(fakeAt(f));
    CORBA_Request_var first(say(obj, "bound"));
    first->invoke();
    const size_t before = f.messages().size();

    CORBA_Request_var oneway(obj->_request("note"));
    oneway->add_in_arg() <<= "in";
    oneway->add_out_arg() <<= CORBA::Long(0);
    EXPECT_THROW(oneway->send_oneway(), CORBA_BAD_PARAM);
    CORBA_Context* ctx = contextOf("", {"x", "1"});
    ctx->set_one_value("n", CORBA_Any() <<= CORBA::Long(3));
    CORBA_Request_var badContext(say(obj, "ctx"));
    badContext->ctx(ctx);
    CORBA::release(ctx);
    EXPECT_THROW(badContext->invoke(), CORBA_BAD_CONTEXT);

    CORBA_Request_var next(say(obj, "after"));
    next->invoke();
    EXPECT_EQ(text(next->return_value()), "after");
    ASSERT_EQ(f.messages().size(), before + 1);
    EXPECT_EQ(f.messages().back().operation, "say");
}

TEST(CORBARequest, UnlinkedUserExceptionsKeepTheirIdSyncAndDeferred) {
    Fake f(Fake::Mode::Serve);
    ASSERT_TRUE(f.ok());
    CORBA_Object_var obj(fakeAt(f));
    for (bool deferred : {false, true}) {
        CORBA_Request_var r(obj->_request("refuse"));
        if (deferred) {
            r->send_deferred();
            r->get_response();
        } else {
            r->invoke();
        }
        auto* u = _CORBA_UNLINKED_UserException::_narrow(r->env()->exception());
        ASSERT_NE(u, nullptr) << deferred;
        EXPECT_STREQ(u->id(), "IDL:Nobody/Home:1.0");
    }
    // The member left unread does not spoil the next reply.
    CORBA_Request_var next(say(obj, "after"));
    next->invoke();
    EXPECT_EQ(text(next->return_value()), "after");
}

TEST(CORBARequest, DeferredReplyReadByASynchronousCallIsKept) {
    Fake f(Fake::Mode::Serve);
    ASSERT_TRUE(f.ok());
    CORBA_Object_var obj(fakeAt(f));
    // The peer answers "held" just before the next request's own reply.
    CORBA_Request_var held(say(obj, "held"));
    held->send_deferred();
    CORBA_Request_var now(say(obj, "now"));
    now->invoke();
    EXPECT_EQ(text(now->return_value()), "now");
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
    EXPECT_THROW(app->create_child(nullptr, root), CORBA_BAD_PARAM);
    EXPECT_THROW(app->set_values(nullptr), CORBA_BAD_PARAM);
    EXPECT_THROW(app->delete_values(nullptr), CORBA_BAD_PARAM);
    EXPECT_EQ(app->parent()->child_count(), 1u);
    CORBA::release(app);
}

TEST(CORBANVList, StreamsAndFreesOutValues) {
    CORBA_NVList* list = nullptr;
    ktest::loopbackOrb()->create_list(2, list);
    CORBA_NamedValue_var out(list->add_value("o", CORBA_Any() <<= CORBA::Long(5), CORBA::ARG_OUT));
    CORBA_MarshalOutBuffer buf;
    buf << *list;
    CORBA_NVList back(0);
    CORBA_MarshalInBuffer in(buf.buffer(), buf.length());
    in >> back;
    ASSERT_EQ(back.count(), 3u);
    EXPECT_EQ(back.capacity(), 3u);
    CORBA_NamedValue_var o(back.item(2));
    EXPECT_STREQ(o->name(), "o");
    EXPECT_EQ(o->flags(), CORBA::ARG_OUT);
    CORBA::Long v = 0;
    EXPECT_TRUE(*o->value() >>= v);
    EXPECT_EQ(v, 5);
    // The list's value alone: the first release frees it, the second
    // must not touch it. A value the caller holds twice over keeps one.
    back.free_out_memory();
    EXPECT_EQ(o->value(), nullptr);
    CORBA_Any* kept = CORBA_Any::_duplicate(CORBA_Any::_duplicate(out->value()));
    list->free_out_memory();
    EXPECT_EQ(out->value(), nullptr);
    CORBA::release(kept);
    CORBA::release(list);
}
