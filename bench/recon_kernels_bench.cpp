// SPDX-License-Identifier: BSD-2-Clause
// Times every sample kernel of the H.264 decoder and the inverse DCT of the other one, the scalar
// reference and what this build and processor choose, on the same samples. Calls of kernels that
// use up their input include its restoring: of 64 coefficients, or of the samples around a
// macroblock for deblocking. After the usual lines comes the ratio of the fastest repetitions,
// chosen kernel to reference.
#include <benchmark/benchmark.h>
#include <stdio.h>
#include <string.h>

#include <functional>
#include <map>
#include <random>
#include <string>

#include "avcdec/intra_modes.h"
#include "avcdec/recon_kernels.h"
#include "m4vdec/m4v_idct.h"

namespace {

constexpr ptrdiff_t kPitch = 32;

struct Work {
    alignas(32) uint8_t samples[21 * kPitch];
    alignas(32) int16_t coefficients[64];

    uint8_t* block() { return samples + 4 * kPitch + 8; }
    // Cr lies beside Cb.
    uint8_t* second() { return block() + 12; }
};

using Call = std::function<void(Work*)>;

// Smooth enough for deblocking to change most samples, with residuals of a few steps.
Work make_work() {
    Work w;
    std::mt19937 rng(1);
    for (uint8_t& s : w.samples) s = static_cast<uint8_t>(100 + rng() % 6);
    for (int16_t& c : w.coefficients) c = static_cast<int16_t>(rng() % 64);
    return w;
}

std::map<std::string, Call> kernel_calls(const ReconKernels& k, M4vIdctFn idct) {
    static constexpr DeblockEdges kEdge = {{40, 10, 0, 12}, {40, 10, 3, 12}, 4};
    static const DeblockEdges kEdges[3] = {kEdge, kEdge, kEdge};
    static const Work start = make_work();
    std::map<std::string, Call> calls;
    const auto block = [&](const char* name, auto fn) {
        calls[name] = [fn](Work* w) {
            memcpy(w->coefficients, start.coefficients, sizeof w->coefficients);
            fn(w->block(), kPitch, w->coefficients);
        };
    };
    block("add_4x4", k.add_4x4);
    block("add_4x4_dc", k.add_4x4_dc);
    block("add_four_4x4", k.add_four_4x4);
    block("add_four_4x4_dc", k.add_four_4x4_dc);
    block("add_8x8", k.add_8x8);
    block("add_8x8_dc", k.add_8x8_dc);
    const auto idct_of = [&](const char* name, unsigned width, unsigned height) {
        calls[name] = [=](Work* w) {
            memset(w->coefficients, 0, sizeof w->coefficients);
            for (unsigned u = 0; u < width; ++u) {
                memcpy(w->coefficients + m4v_position(u, 0), start.coefficients,
                       height * sizeof(int16_t));
            }
            idct(w->block(), kPitch, w->coefficients, width, height);
        };
    };
    idct_of("m4v_idct_8x8", 8, 8);
    idct_of("m4v_idct_8x4", 8, 4);
    idct_of("m4v_idct_4x8", 4, 8);
    idct_of("m4v_idct_4x4", 4, 4);
    const auto edges_of = [&](const char* direction, const EdgeKernels& edges) {
        calls[std::string("deblock_luma_") + direction] = [fn = edges.luma](Work* w) {
            memcpy(w->samples, start.samples, sizeof w->samples);
            fn(w->block(), kPitch, 0, kEdges);
        };
        calls[std::string("deblock_chroma_") + direction] = [fn = edges.chroma](Work* w) {
            memcpy(w->samples, start.samples, sizeof w->samples);
            fn(w->block(), w->second(), kPitch, 0, kEdges);
        };
    };
    edges_of("vertical", k.deblock.vertical);
    edges_of("horizontal", k.deblock.horizontal);
    for (int mode = 0; mode <= kIntraDcTop; ++mode) {
        const std::string digits = {static_cast<char>('0' + mode / 10),
                                    static_cast<char>('0' + mode % 10)};
        calls["pred4x4_" + digits] = [fn = k.pred4x4[mode]](Work* w) { fn(w->block(), kPitch); };
        calls["pred8x8_" + digits] = [fn = k.pred8x8[mode]](Work* w) {
            fn(w->block(), kPitch, kPred8x8TopLeft);
        };
    }
    for (int mode = 0; mode <= 3; ++mode) {
        const std::string digit(1, static_cast<char>('0' + mode));
        calls["pred16x16_" + digit] = [fn = k.pred16x16[mode]](Work* w) { fn(w->block(), kPitch); };
        calls["pred_chroma_" + digit] = [fn = k.pred_chroma[mode]](Work* w) {
            fn(w->block(), kPitch);
        };
    }
    return calls;
}

void run(benchmark::State& state, const Call& call) {
    Work work = make_work();
    for (auto _ : state) {
        call(&work);
        benchmark::DoNotOptimize(&work);
        benchmark::ClobberMemory();
    }
}

// Keeps the fastest repetition of each line besides printing it.
class RatioReporter : public benchmark::ConsoleReporter {
 public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& r : runs) {
            if (r.run_type != Run::RT_Iteration) continue;
            double& best = fastest_[r.run_name.function_name];
            if (best == 0 || r.GetAdjustedCPUTime() < best) best = r.GetAdjustedCPUTime();
        }
        ConsoleReporter::ReportRuns(runs);
    }
    void Finalize() override {
        printf("\n");
        for (const auto& [name, time] : fastest_) {
            const std::string kernel = name.substr(0, name.find('/'));
            const double scalar = fastest_[kernel + "/scalar"];
            if (name == kernel + "/best" && scalar > 0) {
                printf("ratio %-28s %8.1f ns %6.2f\n", kernel.c_str(), time, time / scalar);
            }
        }
    }

 private:
    std::map<std::string, double> fastest_;
};

void register_all(const char* variant, const ReconKernels& kernels, M4vIdctFn idct) {
    for (const auto& [name, call] : kernel_calls(kernels, idct)) {
        benchmark::RegisterBenchmark((name + "/" + variant).c_str(), run, call)
            ->Repetitions(5)
            ->MinTime(0.02);
    }
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    register_all("scalar", recon_kernels_scalar(), m4v_idct_scalar);
    register_all("best", recon_kernels_best(), m4v_idct_best());
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    return 0;
}
