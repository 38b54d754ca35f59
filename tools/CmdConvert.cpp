// tavrin convert: scan files the library reads into .ply or .zelk, one file
// to another or several into a directory.
#include "AtomicFile.h"
#include "Choices.h"
#include "Commands.h"
#include "Interrupt.h"
#include "Logging.h"
#include "ScanIO.h"
#include "Simulation.h"
#include "Summary.h"
#include "ToolError.h"

#include <chrono>
#include <filesystem>
#include <iostream>
#include <map>
#include <memory>

namespace fs = std::filesystem;

namespace tavrin_tool {
namespace {

struct ConvertOptions {
  std::vector<std::string> paths;  // inputs, then the output
  std::string to;
  std::string texture;
  std::string space;
  PlyOptions ply;
};

struct Job {
  std::string input;
  std::string output;
};

bool NamesDirectory(const std::string& path) {
  std::error_code error;
  return (!path.empty() && path.back() == '/') || fs::is_directory(path, error);
}

// One output per input: IN OUT, or IN... DIR with --to.
std::vector<Job> PlanJobs(const ConvertOptions& options) {
  const std::vector<std::string> inputs(options.paths.begin(), options.paths.end() - 1);
  const std::string& output = options.paths.back();
  if (!NamesDirectory(output)) {
    if (inputs.size() > 1) {
      throw UsageError("several inputs go into a directory: the last argument \"" + output +
                       "\" must be one (or end in \"/\")");
    }
    if (!options.to.empty()) {
      throw UsageError("--to names the type of the files written into a directory; \"" + output +
                       "\" names its own type");
    }
    OutputFormatOf(output, false);  // refuse a bad output name before reading anything
    return {{inputs.front(), output}};
  }
  if (options.to.empty()) throw UsageError("converting into a directory needs --to ply or --to zelk");
  std::vector<Job> jobs;
  std::map<std::string, std::string> taken;
  for (const std::string& input : inputs) {
    const std::string target = (fs::path(output) / (fs::path(input).stem().string() + "." + options.to)).string();
    const auto [existing, inserted] = taken.emplace(target, input);
    if (!inserted) {
      throw UsageError("\"" + existing->second + "\" and \"" + input + "\" would both be written to \"" + target + "\"");
    }
    jobs.push_back({input, target});
  }
  return jobs;
}

void RunConvert(ConvertOptions options) {
  StartSimulatedPhoXiControl();
  options.ply.texture = Lookup(TextureNames(), options.texture, TextureChoice::Auto);
  const InputSpace space = Lookup(InputSpaceNames(), options.space, InputSpace::Unstated);
  const std::vector<Job> jobs = PlanJobs(options);
  const int total = static_cast<int>(jobs.size());
  int failures = 0;
  for (int i = 0; i < total; ++i) {
    const Job& job = jobs[static_cast<std::size_t>(i)];
    SetProgress(i, total);
    if (total > 1) PrintProgress("[" + std::to_string(i + 1) + "/" + std::to_string(total) + "] " + job.input);
    try {
      const auto start = std::chrono::steady_clock::now();
      zelk::Scan scan;
      LoadScan(job.input, scan, space);
      SaveScan(job.output, scan, options.ply, [&] { SetProgress(i + 1, total); });
      const double milliseconds =
          std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
      std::cout << SummaryLine(job.output, scan, milliseconds) << std::endl;
    } catch (const ToolError& error) {
      if (total == 1) throw;
      PrintError(error.what());
      ++failures;
    }
  }
  if (failures > 0) throw ReportedFailures();
}

}  // namespace

Command AddConvertCommand(CLI::App& app, const GlobalOptions&) {
  auto options = std::make_shared<ConvertOptions>();
  CLI::App* sub = app.add_subcommand(
      "convert",
      "Convert scan files (.ply, .praw, .zelk, .obj, .stl, .dae, .fbx) to .ply or .zelk: IN OUT, or IN... DIR --to TYPE");
  sub->add_option("FILES", options->paths,
                  "Input files, then the output: a file (.ply Photoneo PLY, .zelk), or a directory (existing, or "
                  "ending in \"/\") that takes one file per input named after it")
      ->required()
      ->expected(2, -1);
  sub->add_option("--to", options->to, "Type of the files written into a directory: ply or zelk")
      ->transform(CLI::IsMember({"ply", "zelk"}, CLI::ignore_case));
  AddPlyOptions(*sub, options->texture, options->ply);
  AddInputSpaceOption(*sub, options->space);
  return {sub, [options] { RunConvert(*options); }};
}

}  // namespace tavrin_tool
