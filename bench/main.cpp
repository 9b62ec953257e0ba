// Runs every pair several times, interleaved, and prints the ratios of their medians.
//
//   lum_bench [--json=FILE] [options of Google Benchmark]
#include "bench.h"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <map>
#include <string>
#include <string_view>
#include <thread>
#include <tuple>
#include <vector>

namespace {

using samples = std::vector<double>;

double median(samples values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

struct row {
  std::string registered;  // the name before numbers are put into it
  std::string name;
  std::string reference_point;
  std::uint32_t ports = 0;
  samples measured;  // nanoseconds
  samples reference;
  bool is_whole() const { return !measured.empty() && !reference.empty(); }
  double ratio() const { return median(measured) / median(reference); }
};

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
      row &of = row_of(name.substr(0, end));
      const bool is_reference = name.substr(end) == bench::reference;
      const bool is_processor_time = run.run_name.time_type.empty();
      (is_reference ? of.reference : of.measured)
          .push_back(is_processor_time ? run.GetAdjustedCPUTime() : run.GetAdjustedRealTime());
    }
  }

  bool failed() const { return failed_; }

  // By name, and by the number of ports.
  void sort() {
    std::sort(rows_.begin(), rows_.end(), [](const row &a, const row &b) {
      return std::tie(a.registered, a.ports) < std::tie(b.registered, b.ports);
    });
  }

  void print() const {
    std::printf("%-40s %6s %12s %12s %9s  %s\n", "", "ports", "liblum ns", "reference ns", "ratio",
                "reference point");
    for (const row &one : rows_) {
      if (!one.is_whole()) continue;
      std::printf("%-40s %6u %12.1f %12.1f %9.2f  %s\n", one.name.c_str(), one.ports,
                  median(one.measured), median(one.reference), one.ratio(),
                  one.reference_point.c_str());
    }
  }

  // Names and reference points are our own texts, with nothing in them to escape.
  void write(const std::string &file) const {
    std::ofstream out(file);
    out << "{\"processors\": " << std::thread::hardware_concurrency() << ", \"rows\": [";
    const char *separator = "\n";
    for (const row &one : rows_) {
      if (!one.is_whole()) continue;
      out << separator << "  {\"name\": \"" << one.name << "\", \"ports\": " << one.ports
          << ", \"ns\": " << median(one.measured) << ", \"reference\": \"" << one.reference_point
          << "\", \"reference_ns\": " << median(one.reference) << ", \"ratio\": " << one.ratio()
          << "}";
      separator = ",\n";
    }
    out << "\n]}\n";
    if (!out.flush()) {
      std::fprintf(stderr, "lum_bench: %s cannot be written\n", file.c_str());
      failed_ = true;
    }
  }

 private:
  row &row_of(const std::string &registered) {
    const std::size_t bar = registered.find('|');
    std::string name = registered.substr(0, bar);
    for (const auto &[mark, number] :
         {std::pair<std::string_view, std::uint32_t>{"{ports}", bench::port_count()},
          {"{controllers}", 2 * bench::port_count()}}) {
      if (const std::size_t at = name.find(mark); at != std::string::npos) {
        name.replace(at, mark.size(), std::to_string(number));
      }
    }
    for (row &one : rows_) {
      if (one.registered == registered && one.ports == bench::port_count()) return one;
    }
    rows_.push_back({registered, name, registered.substr(bar + 1), bench::port_count(), {}, {}});
    return rows_.back();
  }

  std::vector<row> rows_;
  mutable bool failed_ = false;
};

// Takes the option out of the arguments.
std::string json_file(int &count, char **arguments) {
  constexpr std::string_view option = "--json=";
  std::string file;
  int kept = 0;
  for (int i = 0; i < count; ++i) {
    const std::string_view argument = arguments[i];
    if (argument.starts_with(option)) {
      file = argument.substr(option.size());
    } else {
      arguments[kept++] = arguments[i];
    }
  }
  count = kept;
  return file;
}

}  // namespace

int main(int argc, char **argv) {
  const std::string file = json_file(argc, argv);
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
  ratio_table table;
  for (const std::uint32_t ports : {8u, bench::usual_ports, 500u, 4000u}) {
    bench::grow_to(ports);
    benchmark::ClearRegisteredBenchmarks();
    bench::ports();
    bench::modules();
    bench::visits();
    bench::creations();
    if (ports == bench::usual_ports) {
      bench::batches();
      bench::services();
    }
    benchmark::RunSpecifiedBenchmarks(&table);
  }
  table.sort();
  table.print();
  if (!file.empty()) table.write(file);
  return table.failed() ? 1 : 0;
}
