// What DSinit() and _CORBA_init() link in shows only in programs of their
// own: each probe reads the agent client's classes with nothing but its
// initialiser, and writes them back.
#include <gtest/gtest.h>

#include <chrono>
#include <sstream>
#include <string>

#include "dsaddr.h"
#include "dsname.h"
#include "dsprovider.h"
#include "process.h"
#include "tbiostrm.h"

namespace {

void runProbe(const char* path) {
    DSAddr addr(4711, 0x7f000001u);
    DSName name("Demo::Echo", DS_ARG_DEFAULT, DS_SERVICE_OBJECT, nullptr);
    DSProvider prov(name, addr, DS_PROTOCOL_DEFAULT, 0);
    std::ostringstream text;
    {
        TBostream out(text);
        out << static_cast<const TBTransObject*>(&addr) << static_cast<const TBTransObject*>(&name)
            << static_cast<const TBTransObject*>(&prov);
    }
    ktest::TempDir dir("dsinit");
    ktest::Process::Options opts;
    opts.argv = {path};
    opts.stdinPath = dir.file("in");
    ASSERT_TRUE(ktest::writeFile(opts.stdinPath, text.str()));
    ktest::Process probe;
    ASSERT_TRUE(probe.start(opts)) << probe.error();
    ASSERT_TRUE(probe.wait(std::chrono::seconds(10)));
    EXPECT_EQ(probe.exitCode(), 0);
    EXPECT_EQ(probe.stderrText(), "");
    EXPECT_EQ(probe.stdoutText(), text.str());
}

TEST(DSinit, LinksInTheAgentClientClasses) { runProbe(KELVANOR_DSINIT_PROBE); }

TEST(DSinit, CorbaInitBringsThemInToo) { runProbe(KELVANOR_CINIT_PROBE); }

}  // namespace
