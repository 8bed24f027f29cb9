// The clock of cdr_compare: both sides of the comparison time their cases
// with this one function, so that they are measured alike.
#ifndef KELVANOR_CDR_CLOCK_H
#define KELVANOR_CDR_CLOCK_H

#include <algorithm>
#include <chrono>
#include <vector>

namespace cdrclock {

// Runs op in batches of `perBatch` calls and gives the median time of one
// call in nanoseconds. The median of many short batches keeps a stray
// interrupt or a cold cache out of the result.
template <class Op>
double nsPerCall(Op&& op, int perBatch = 200, int batches = 31) {
    for (int i = 0; i < perBatch; ++i) op();  // warm caches and allocator
    std::vector<double> samples;
    samples.reserve(static_cast<std::size_t>(batches));
    for (int b = 0; b < batches; ++b) {
        auto start = std::chrono::steady_clock::now();
        for (int i = 0; i < perBatch; ++i) op();
        auto stop = std::chrono::steady_clock::now();
        samples.push_back(std::chrono::duration<double, std::nano>(stop - start).count() /
                          perBatch);
    }
    std::nth_element(samples.begin(), samples.begin() + batches / 2, samples.end());
    return samples[static_cast<std::size_t>(batches / 2)];
}

// Keeps the compiler from dropping a computation whose result is unused.
template <class T>
inline void keep(const T& value) {
    asm volatile("" : : "r,m"(value) : "memory");
}

}  // namespace cdrclock

namespace cdrclock {

// The cases, in the order they are printed; both sides know them by these
// names.
constexpr const char* kCases[] = {
    "longs_encode",      "longs_decode",      "doubles_encode",    "doubles_decode",
    "seq_long_encode",   "seq_long_decode",   "seq_double_encode", "seq_double_decode",
    "strings_encode",    "strings_decode",    "any_seq_long_encode", "any_seq_long_decode",
    "any_struct_encode", "any_struct_decode",
};
constexpr int kCount = 1024;       // values per primitive case and sequence
constexpr int kStrings = 100;      // strings per string case
constexpr int kStringLength = 32;  // characters of each string
constexpr int kSampleDoubles = 100;  // doubles of the struct in an Any

}  // namespace cdrclock

#endif
