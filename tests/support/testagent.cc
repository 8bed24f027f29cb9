// Running the test agent from the tests.
#include "testagent.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <sstream>

namespace ktest {

TestAgent::~TestAgent() {
    if (_in >= 0) ::close(_in);
}

bool TestAgent::start(const std::string& addr, int agentPort, int sessionPort,
                      const std::vector<std::string>& extra) {
    const std::string fifo = _dir.file("in");
    mkfifo(fifo.c_str(), 0600);
    // Read-write, so that opening does not wait for the reader.
    _in = ::open(fifo.c_str(), O_RDWR);
    Process::Options o;
    o.argv = {"/usr/bin/env", "python3", std::string(KELVANOR_SOURCE_DIR) + "/tools/testagent.py",
              "--addr", addr, "--agent-port", std::to_string(agentPort), "--session-port",
              std::to_string(sessionPort), "--ready", _dir.file("ready"), "--log", _dir.file("log")};
    o.argv.insert(o.argv.end(), extra.begin(), extra.end());
    o.stdinPath = fifo;
    if (!_proc.start(o)) return _error = _proc.error(), false;
    const std::string ready = _dir.file("ready");
    pollUntil([&] { return !readFile(ready).empty() || !_proc.running(); }, std::chrono::seconds(10));
    if (readFile(ready).empty()) return _error = "the agent did not come up: " + _proc.stderrText(), false;
    return true;
}

void TestAgent::command(const std::string& line) {
    std::string text = line + "\n";
    (void)!::write(_in, text.data(), text.size());  // a FIFO of ours: a short write is impossible
}

std::string TestAgent::log() const { return readFile(_dir.file("log")); }

std::vector<std::string> TestAgent::lines(const std::vector<std::string>& words) const {
    std::vector<std::string> out;
    std::istringstream in(log());
    std::string line;
    auto has = [&line](const std::string& w) { return line.find(w) != std::string::npos; };
    while (std::getline(in, line))
        if (std::all_of(words.begin(), words.end(), has)) out.push_back(line);
    return out;
}

bool TestAgent::waitFor(const std::vector<std::string>& words, int limit_ms) const {
    return pollUntil([&] { return !lines(words).empty(); }, std::chrono::milliseconds(limit_ms));
}

}  // namespace ktest
