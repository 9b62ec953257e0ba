// Runs every pair several times, interleaved, and prints the ratios of their medians.
#include <algorithm>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "bench.h"
#include "lum.h"

namespace {

using samples = std::vector<double>;

double median(samples values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

// Collects the runs of both sides instead of printing them.
class ratio_table : public benchmark::BenchmarkReporter {
 public:
  bool ReportContext(const Context &) override { return true; }

  void ReportRuns(const std::vector<Run> &runs) override {
    for (const Run &run : runs) {
      if (run.error_occurred) {
        std::fprintf(stderr, "%s: %s\n", run.run_name.function_name.c_str(),
                     run.error_message.c_str());
        failed_ = true;
      }
      if (run.run_type != Run::RT_Iteration || run.error_occurred) continue;
      const std::string name = run.run_name.function_name;
      const std::size_t end = name.rfind('/');
      sides &pair = pairs_[name.substr(0, end)];
      const bool is_reference = name.substr(end) == bench::reference;
      (is_reference ? pair.reference : pair.measured).push_back(run.GetAdjustedRealTime());
    }
  }

  bool failed() const { return failed_; }

  void Finalize() override {
    std::printf("%-44s %10s  %s\n", "", "ratio", "reference point");
    for (const auto &[name, pair] : pairs_) {
      if (pair.measured.empty() || pair.reference.empty()) continue;
      const std::size_t bar = name.find('|');
      std::printf("%-44s %10.2f  %s\n", name.substr(0, bar).c_str(),
                  median(pair.measured) / median(pair.reference), name.substr(bar + 1).c_str());
    }
  }

 private:
  struct sides {
    samples measured;
    samples reference;
  };
  std::map<std::string, sides> pairs_;
  bool failed_ = false;
};

}  // namespace

void bench::start_ports() {
  static const bool started = [] {
    lum_platform_data_init(0, 0);
    std::vector<std::uint32_t> ports, handles;
    for (std::uint32_t i = 0; i < port_count; ++i) {
      ports.push_back(i);
      handles.push_back(i + 1);
    }
    lum_add_device_to_ports_db(0, 1, 0, port_count, ports.data(), handles.data());
    for (std::uint32_t i = 0; i < port_count; ++i) {
      for (std::uint32_t s = 0; s < LUM_SUB_PORTS; ++s) {
        char name[LUM_IFNAME_SIZE];
        lum_construct_if_name(LUM_IFTYPE_OTS, 0, 1, 0, i, 0, s, name);
        lum_update_ifhandle(name, 1000 + 2 * i + s);
      }
    }
    return true;
  }();
  static_cast<void>(started);
}

int main(int argc, char **argv) {
  std::vector<char *> arguments(argv, argv + argc);
  std::string repetitions = "--benchmark_repetitions=5";
  std::string interleaved = "--benchmark_enable_random_interleaving=true";
  std::string min_time = "--benchmark_min_time=0.05";
  for (std::string *argument : {&repetitions, &interleaved, &min_time}) {
    arguments.insert(arguments.begin() + 1, argument->data());
  }
  int count = static_cast<int>(arguments.size());
  benchmark::Initialize(&count, arguments.data());
  if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) return 2;
  bench::ports();
  bench::batches();
  bench::modules();
  bench::services();
  ratio_table table;
  benchmark::RunSpecifiedBenchmarks(&table);
  return table.failed() ? 1 : 0;
}
