#pragma once
// Console reporter that also keeps the wall time (ms) of every run by its
// function name, so a benchmark program can print ratios after the run: the
// median of the repetitions when the benchmark repeats (with the "min" and
// "max" statistics when asked for), otherwise the mean of its iterations.
#include <benchmark/benchmark.h>
#include <ulog/ulog.h>

#include <algorithm>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace tavrin_bench {

class TimeRecorder : public benchmark::ConsoleReporter {
public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.iterations <= 0) continue;
      const std::string& name = run.run_name.function_name;
      const double ms = run.real_accumulated_time * 1e3 / static_cast<double>(run.iterations);
      if (run.run_type == Run::RT_Iteration) {
        if (run.repetitions <= 1) times_[name] = ms;
      } else {
        statistics_[name][run.aggregate_name] = ms;
        if (run.aggregate_name == "median") times_[name] = ms;
      }
    }
    benchmark::ConsoleReporter::ReportRuns(runs);
  }
  std::optional<double> Milliseconds(const std::string& name) const {
    const auto it = times_.find(name);
    if (it == times_.end()) return std::nullopt;
    return it->second;
  }
  // A statistic of a repeated benchmark ("min", "max", ...), in ms.
  std::optional<double> Statistic(const std::string& name, const std::string& statistic) const {
    const auto it = statistics_.find(name);
    if (it == statistics_.end()) return std::nullopt;
    const auto found = it->second.find(statistic);
    if (found == it->second.end()) return std::nullopt;
    return found->second;
  }

  // Statistics for benchmark::Benchmark::ComputeStatistics: the spread of
  // the repetitions.
  static double Min(const std::vector<double>& v) { return *std::min_element(v.begin(), v.end()); }
  static double Max(const std::vector<double>& v) { return *std::max_element(v.begin(), v.end()); }

private:
  std::map<std::string, double> times_;
  std::map<std::string, std::map<std::string, double>> statistics_;
};

// Runs the registered benchmarks into `reporter` with the library's log lines
// dropped, after `prepare` has built the fixtures (untimed). False for
// arguments Google Benchmark does not know.
template <class Prepare>
bool RunQuietly(int& argc, char** argv, TimeRecorder& reporter, Prepare prepare) {
  ulog::SetSink([](ulog::Level, const std::string&, const std::string&) {});
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return false;
  prepare();
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  return true;
}

}  // namespace tavrin_bench
