// A benchmark and its reference point, which does the least that the task needs.
#pragma once

#include <benchmark/benchmark.h>

#include <string>

#include "port_model.h"

namespace bench {

constexpr char measured[] = "/liblum";
constexpr char reference[] = "/reference";

// A row of the table. Its name may have the number of ports in it, as {ports}.
template <typename Measured, typename Reference>
void pair(const std::string &name, const std::string &reference_point, Measured run,
          Reference run_reference) {
  const std::string row = name + '|' + reference_point;
  benchmark::RegisterBenchmark((row + measured).c_str(), run);
  benchmark::RegisterBenchmark((row + reference).c_str(), run_reference);
}

// A row of what waits for the disk: its time is that which passes; of the others it is what the
// processor spends, which hangs less on what else the machine does.
template <typename Measured, typename Reference>
void waiting_pair(const std::string &name, const std::string &reference_point, Measured run,
                  Reference run_reference) {
  const std::string row = name + '|' + reference_point;
  benchmark::RegisterBenchmark((row + measured).c_str(), run)->UseRealTime();
  benchmark::RegisterBenchmark((row + reference).c_str(), run_reference)->UseRealTime();
}

// A row whose iterations time themselves; both sides make as many.
template <typename Measured, typename Reference>
void timed_pair(const std::string &name, const std::string &reference_point,
                benchmark::IterationCount iterations, Measured run, Reference run_reference) {
  const std::string row = name + '|' + reference_point;
  benchmark::RegisterBenchmark((row + measured).c_str(), run)
      ->UseManualTime()
      ->Iterations(iterations);
  benchmark::RegisterBenchmark((row + reference).c_str(), run_reference)
      ->UseManualTime()
      ->Iterations(iterations);
}

// One per source; each registers its pairs: those that hang on the number of ports, and the others.
void ports();
void batches();
void modules();
void visits();
void services();
void creations();

}  // namespace bench
