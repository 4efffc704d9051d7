// The edit record's hot paths: every slider move writes one record to the edit book and every
// history entry builds one change line, so decode, encode and changes must stay in microseconds.
#include <benchmark/benchmark.h>

#include "RandomRecords.h"
#include "edit/Adjustments.h"

namespace {

ql::Adjustments fullRecord() {
    std::mt19937_64 rng(1);
    return ql::testing::randomAdjustments(rng);
}

void BM_DecodeDefault(benchmark::State& state) {
    const std::string text = ql::Adjustments::defaults().encode();
    for (auto _ : state)
        benchmark::DoNotOptimize(ql::Adjustments::decode(text));
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(text.size()));
}
BENCHMARK(BM_DecodeDefault);

void BM_DecodeFull(benchmark::State& state) {
    const std::string text = fullRecord().encode();
    for (auto _ : state)
        benchmark::DoNotOptimize(ql::Adjustments::decode(text));
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(text.size()));
}
BENCHMARK(BM_DecodeFull);

void BM_EncodeFull(benchmark::State& state) {
    const ql::Adjustments a = fullRecord();
    for (auto _ : state)
        benchmark::DoNotOptimize(a.encode());
}
BENCHMARK(BM_EncodeFull);

void BM_ChangesFull(benchmark::State& state) {
    const ql::Adjustments a = fullRecord();
    const ql::Adjustments& old = ql::Adjustments::defaults();
    for (auto _ : state)
        benchmark::DoNotOptimize(a.changes(old, ql::AppLanguage::vi));
}
BENCHMARK(BM_ChangesFull);

void BM_Equality(benchmark::State& state) {
    const ql::Adjustments a = fullRecord();
    const ql::Adjustments b = a;
    for (auto _ : state)
        benchmark::DoNotOptimize(a == b);
}
BENCHMARK(BM_Equality);

}  // namespace

BENCHMARK_MAIN();
