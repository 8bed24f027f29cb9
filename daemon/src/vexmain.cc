// The activation daemon's program: signal handlers, the broker, the
// daemon's own options, the servant with its repository, the naming
// service, then the object adapter's loop.
#include <signal.h>
#include <unistd.h>

#include <cstdlib>
#include <iostream>

#include "vexreg.h"
#include "vexsrv.h"

using std::cout;
using std::endl;

namespace {

void usage() {
    cout << "vex arguments: " << endl;
    cout << "\t-v <verbose mode>" << endl;
    cout << "\t-t <timeout value>" << endl;
    cout << "\t-? <print help>" << endl;
}

}  // namespace

int main(int argc, char** argv) {
    // SIGKILL and SIGSTOP cannot be caught; the calls stay for the record
    // of what the daemon asks for, and their results mean nothing.
    signal(SIGPIPE, SIG_IGN);
    signal(SIGKILL, signalHandler);
    signal(SIGQUIT, signalHandler);
    signal(SIGSTOP, signalHandler);
    signal(SIGCHLD, childHandler);
    signal(SIGINT, signalHandler);
    signal(SIGTERM, signalHandler);

    // BROKER INITIALISATION: CORBA::ORB_init(argc, argv, 0) and BOA_init on
    // its result go here, before the daemon's own options, so that getopt
    // sees only what the broker leaves in argv.

    unsigned char verbose = 0;
    int c;
    while ((c = getopt(argc, argv, "vt:?")) != -1) {
        switch (c) {
        case 'v':
            verbose = 1;
            break;
        case 't':
            default_timeout = atoi(optarg);
            break;
        default:
            usage();
            return 1;
        }
    }

    // GLOBAL TABLE SETTINGS go here, after all options so that they win over
    // the command line: call_bind_unbind cleared, recursion and is_vex set.

    VEXImpl servant(verbose);

    // OBJECT ADAPTER: obj_is_ready(&servant, 0) goes here.

    if (!RegisterVEX(&servant, nullptr)) {
        cout << "VEX did not register with naming service" << endl;
        exit(0);
    }
    cout << "VEX registered with naming service" << endl;

    // OBJECT ADAPTER: impl_is_ready(0) goes here; it holds the process
    // until the loop ends.
    return 0;
}
