// --agent, for both echo programs: the broker finds and registers objects
// through a directory agent (found on -ORBagentport, TOLAGENT_PORT or the
// default port) instead of the null agent client. Call it after ORB_init.
#ifndef ECHO_AGENT_OPTION_H
#define ECHO_AGENT_OPTION_H

#include <cstring>

#include <kelvanor/dsuser.h>
#include <kelvanor/zebglob.h>

// Takes --agent out of argv; true if it was there.
inline bool useAgentIfAsked(int& argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--agent") != 0) continue;
        for (int j = i; j < argc; ++j) argv[j] = argv[j + 1];
        --argc;
        const char* slash = std::strrchr(argv[0], '/');
        ZEBGlobalTable::setAgentClient(DSUser::open(slash ? slash + 1 : argv[0], "",
                                                    static_cast<int>(ZEBGlobalTable::agent_port)));
        return true;
    }
    return false;
}

#endif
