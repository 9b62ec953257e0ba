// A benchmark and its reference point, which does the least that the task needs.
#pragma once

#include <benchmark/benchmark.h>

#include <string>

namespace bench {

constexpr char measured[] = "/liblum";
constexpr char reference[] = "/reference";

template <typename Measured, typename Reference>
void pair(const std::string &name, Measured run, Reference run_reference) {
  benchmark::RegisterBenchmark((name + measured).c_str(), run);
  benchmark::RegisterBenchmark((name + reference).c_str(), run_reference);
}

// One per source; each registers its pairs.
void ports();
void batches();
void modules();
void services();

// A started port model with `count` ports on slot 1, handles 1 to count, interface handles 1000 and
// up. Made once.
constexpr unsigned port_count = 64;
void start_ports();

}  // namespace bench
