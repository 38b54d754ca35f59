#pragma once
// Console reporter that also keeps the mean wall time (ms) of every run by
// its function name, so a benchmark program can print ratios after the run.
#include <benchmark/benchmark.h>
#include <ulog/ulog.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace tavrin_bench {

class TimeRecorder : public benchmark::ConsoleReporter {
public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.iterations > 0) times_[run.run_name.function_name] = run.real_accumulated_time * 1e3 / run.iterations;
    }
    benchmark::ConsoleReporter::ReportRuns(runs);
  }
  std::optional<double> Milliseconds(const std::string& name) const {
    const auto it = times_.find(name);
    if (it == times_.end()) return std::nullopt;
    return it->second;
  }

private:
  std::map<std::string, double> times_;
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
