// The test agent (tools/testagent.py) as a child process: started on an
// address with its ports, commanded through a FIFO on its standard input,
// and read through its log of datagrams.
#ifndef KELVANOR_TEST_TESTAGENT_H
#define KELVANOR_TEST_TESTAGENT_H

#include <string>
#include <vector>

#include "process.h"

namespace ktest {

class TestAgent {
public:
    TestAgent() = default;
    ~TestAgent();
    TestAgent(const TestAgent&) = delete;
    TestAgent& operator=(const TestAgent&) = delete;

    // False, with error(), if python3 or the agent failed to come up in 10 s.
    bool start(const std::string& addr, int agentPort, int sessionPort,
               const std::vector<std::string>& extra = {});
    void command(const std::string& line);
    void stop() { _proc.stop(9); }
    // Log lines that hold every one of the words.
    std::vector<std::string> lines(const std::vector<std::string>& words) const;
    // Waits up to limit_ms for such a line.
    bool waitFor(const std::vector<std::string>& words, int limit_ms) const;
    const std::string& error() const { return _error; }
    std::string log() const;

private:
    TempDir _dir{"kagent"};
    Process _proc;
    int _in = -1;  // write end of the FIFO
    std::string _error;
};

}  // namespace ktest

#endif
