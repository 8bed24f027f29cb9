// The broker of a test process, its adapter on loopback only.
#ifndef KELVANOR_TEST_ORB_LOOPBACK_H
#define KELVANOR_TEST_ORB_LOOPBACK_H

#include "orb.h"
#include "zebglob.h"

namespace ktest {

// Each test runs in a process of its own, so the first call makes the
// adapter, on 127.0.0.1.
inline CORBA_ORB* loopbackOrb() {
    ZEBGlobalTable::boa_ipaddr = "127.0.0.1";
    int argc = 1;
    char name[] = "test";
    char* argv[] = {name, nullptr};
    return CORBA::ORB_init(argc, argv);
}

}  // namespace ktest

#endif
