// Batched standard output for the daemon's long verbose reports. While a
// batch is installed on a stream, everything written to that stream collects
// in one block, and a flush (endl) hands the block on as usual, except inside
// a Hold: there flushes are put off, so that a report of many lines leaves in
// one write together with the reports after it. Whatever else is printed
// flushes the held reports first, so the order of all lines stays the same.
#ifndef KELVANOR_VEXBATCH_H
#define KELVANOR_VEXBATCH_H

#include <cstddef>
#include <ostream>
#include <streambuf>

class VEXOutputBatch : public std::streambuf {
public:
    // Installs itself as the buffer of os (normally cout) until destroyed.
    explicit VEXOutputBatch(std::ostream& os);
    // Hands on what is held and gives os its own buffer back.
    ~VEXOutputBatch() override;
    VEXOutputBatch(const VEXOutputBatch&) = delete;
    VEXOutputBatch& operator=(const VEXOutputBatch&) = delete;

    // Puts off the flushes of the installed batch while it lives; with no
    // batch installed it does nothing, and every flush goes through.
    class Hold {
    public:
        Hold();
        ~Hold();
        Hold(const Hold&) = delete;
        Hold& operator=(const Hold&) = delete;

    private:
        VEXOutputBatch* _batch;
    };

    // Runs in a signal handler that is about to end the process: writes the
    // held bytes of the installed batch to descriptor 1 with write(2) and
    // nothing else.
    static void flushFromSignal();

protected:
    int_type overflow(int_type c) override;
    int sync() override;

private:
    // Gives the bytes in [pbase(), pptr()) to the saved buffer, empties the
    // block and flushes the saved buffer; the result of that flush.
    int pass();

    static constexpr std::size_t kBlock = 64 * 1024;
    static VEXOutputBatch* _active;  // the batch installed last, or null

    std::ostream& _os;
    std::streambuf* _saved;       // os's own buffer, back in place at the end
    VEXOutputBatch* _previous;    // the batch that was installed before this one
    unsigned _holding;            // live Hold objects
    char _block[kBlock];          // held output: [pbase(), pptr())
};

#endif
