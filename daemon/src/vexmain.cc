// The activation daemon's program: signal handlers, the broker, the
// daemon's own options, the servant with its repository, the naming
// service, then the object adapter's loop.
#include <signal.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <iostream>

#include "boa.h"
#include "orb.h"
#include "vex_functions.h"
#include "zebglob.h"
#include "actdef.h"
#include "vexsrv.h"
#include "vextrust.h"
#include <kelvanor/version.h>

using std::cout;
using std::endl;

namespace {

void usage() {
    cout << "vex arguments: " << endl;
    cout << "\t-v <verbose mode>" << endl;
    cout << "\t-t <timeout value>" << endl;
    cout << "\t-k <seconds a started server may take to report>" << endl;
    cout << "\t-a <administration from any address>" << endl;
    cout << "\t-x <directory of programs>" << endl;
    cout << "\t-? <print help>" << endl;
}

}  // namespace

int main(int argc, char** argv) {
    // -V prints the version before the broker starts, which opens the
    // adapter's listening socket.
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "-V") == 0) {
            cout << "vex (Kelvanor) " << kelvanor_version << endl;
            return 0;
        }
    }

    // SIGKILL and SIGSTOP cannot be caught; the calls stay for the record
    // of what the daemon asks for, and their results mean nothing.
    signal(SIGPIPE, SIG_IGN);
    signal(SIGKILL, signalHandler);
    signal(SIGQUIT, signalHandler);
    signal(SIGSTOP, signalHandler);
    signal(SIGCHLD, childHandler);
    signal(SIGINT, signalHandler);
    signal(SIGTERM, signalHandler);

    // The broker takes its own options out of argv first, so that getopt
    // sees only the daemon's.
    CORBA::ORB_ptr orb = CORBA::ORB_init(argc, argv, nullptr);
    CORBA::BOA_ptr boa = orb->BOA_init(argc, argv, nullptr);

    unsigned char verbose = 0;
    int c;
    // -a and -x depart from the daemon's first options: without -a only
    // loopback peers administer, and -x confines the programs it runs.
    while ((c = getopt(argc, argv, "vt:k:ax:?")) != -1) {
        switch (c) {
        case 'v':
            verbose = 1;
            break;
        case 't':
            default_timeout = atoi(optarg);
            break;
        case 'k':
            VEXActivationInfo::startLimit(atol(optarg));
            break;
        case 'a':
            VEXTrust::allowRemoteAdmin(true);
            break;
        case 'x':
            if (!VEXTrust::addProgramDir(optarg)) {
                cout << "VEX: -x " << optarg << " is not a directory" << endl;
                return 1;
            }
            break;
        default:
            usage();
            return 1;
        }
    }

    // After all options, so that these win over the command line: the daemon
    // is never announced to by its clients, its servant may be entered again
    // while a start-up waits, and it is the daemon.
    ZEBGlobalTable::call_bind_unbind = 0;
    ZEBGlobalTable::recursion = 1;
    ZEBGlobalTable::is_vex = 1;

    VEXImpl servant(verbose);
    boa->obj_is_ready(&servant, nullptr);
    // Requests for the registered pairs' own keys are forwarded to their
    // servers.
    VEXKeyForwarder forwarder(servant);
    ZEBKeyForwarder::install(&forwarder);
    // The servers this daemon starts inherit its reference here and report
    // to it straight away, without a round trip to the naming service.
    CORBA_String_var self(orb->object_to_string(&servant));
    setenv(kVexIorVariable, self.in(), 1);

    if (!RegisterVEX(&servant, nullptr)) {
        cout << "VEX did not register with naming service" << endl;
        exit(0);
    }
    cout << "VEX registered with naming service" << endl;

    // Serves until a signal ends the process.
    boa->impl_is_ready(nullptr);
    return 0;
}
