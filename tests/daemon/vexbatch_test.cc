// Batched standard output: a full block goes on by itself while held, and
// the signal path writes what is held.
#include "vexbatch.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <ostream>
#include <sstream>
#include <string>

#include "process.h"

namespace {

// The text the stream was given and how often it was flushed.
struct Sink : std::stringbuf {
    int flushes = 0;
    int sync() override { return ++flushes, 0; }
};

TEST(VEXOutputBatch, AFullBlockGoesOnWhileHeldAndNothingIsLost) {
    Sink sink;
    std::ostream os(&sink);
    std::string expected;
    {
        VEXOutputBatch batch(os);
        VEXOutputBatch::Hold hold;
        for (int i = 0; i < 20000; ++i) {
            std::string line = "line " + std::to_string(i) + "\n";
            os << line << std::flush;
            expected += line;
        }
        // Well over one block was written: some of it has gone on, in blocks.
        EXPECT_GT(sink.str().size(), 0u);
        EXPECT_EQ(sink.str(), expected.substr(0, sink.str().size()));
        EXPECT_LT(sink.flushes, 10);
    }
    EXPECT_EQ(sink.str(), expected);
}

TEST(VEXOutputBatch, TheSignalPathWritesTheHeldBytesToStandardOutput) {
    ktest::TempDir dir("vexbatch");
    const std::string file = dir.file("out");
    Sink sink;
    std::ostream os(&sink);
    VEXOutputBatch batch(os);
    {
        VEXOutputBatch::Hold hold;
        os << "held" << std::endl;
    }
    std::cout.flush();
    int saved = dup(1);
    ASSERT_GE(saved, 0);
    int fd = open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    ASSERT_GE(fd, 0);
    dup2(fd, 1);
    close(fd);
    VEXOutputBatch::flushFromSignal();
    dup2(saved, 1);
    close(saved);
    EXPECT_EQ(ktest::readFile(file), "held\n");
}

}  // namespace
