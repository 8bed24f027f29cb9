// Cost of one rewrite of the whole repository file (temporary file, fsync,
// rename, directory fsync) and of loading it at start, by number of entries.
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <string>

#include <benchmark/benchmark.h>

#include "impldef.h"
#include "vexsrv.h"

namespace {

// A private repository directory for one benchmark run.
class BenchDir {
public:
    BenchDir() {
        char tmpl[] = "/tmp/vexbenchXXXXXX";
        _path = mkdtemp(tmpl) ? tmpl : "";
        setenv("KELVANOR_IMPL_PATH", _path.c_str(), 1);
        unsetenv("KELVANOR_IMPL_NAME");
    }
    ~BenchDir() {
        // Temporary files of interrupted rewrites are not left by a
        // benchmark, so the file and the directory are all there is.
        unlink((_path + "/impl_rep").c_str());
        rmdir(_path.c_str());
    }
    bool ok() const { return !_path.empty(); }

private:
    std::string _path;
};

// n entries over 10 interfaces, each with two arguments and one
// environment string.
void fill(VEXImpl& repo, long n) {
    CORBA_StringSequence args;
    args.length(2);
    args[0] = "-ORBport";
    args[1] = "0";
    CORBA_StringSequence env;
    env.length(1);
    env[0] = "LANG=C";
    for (long i = 0; i < n; ++i) {
        std::string iface = "IDL:Bench/Iface" + std::to_string(i % 10) + ":1.0";
        std::string obj = "object-" + std::to_string(i);
        CORBA_CreationImplDef d(iface.c_str(), obj.c_str(), CORBA_OctetSequence(), "/bin/sh",
                                CORBA_CreationImplDef::SHARED_SERVER, args, env);
        repo._addImpl(&d);
    }
}

// False, with the benchmark marked as skipped, when there is no directory.
bool usable(const BenchDir& dir, benchmark::State& state) {
    if (!dir.ok()) state.SkipWithError("no temporary directory");
    return dir.ok();
}

void BM_Rewrite(benchmark::State& state) {
    BenchDir dir;
    if (!usable(dir, state)) return;
    VEXImpl repo(0);
    fill(repo, state.range(0));
    for (auto _ : state) repo._updateRepository();
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void BM_Load(benchmark::State& state) {
    BenchDir dir;
    if (!usable(dir, state)) return;
    {
        VEXImpl repo(0);
        fill(repo, state.range(0));
        repo._updateRepository();
    }
    for (auto _ : state) {
        std::unique_ptr<VEXImpl> repo(new VEXImpl(0));
        benchmark::DoNotOptimize(repo.get());
        state.PauseTiming();
        repo.reset();
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

}  // namespace

BENCHMARK(BM_Rewrite)->RangeMultiplier(10)->Range(100, 10000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Load)->RangeMultiplier(10)->Range(100, 10000)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
