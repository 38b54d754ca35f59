#pragma once
// The fuzz targets as the tests see them: name (= corpus folder under
// tests/data/fuzz), entry function and how hard to mutate.
#include "../../fuzz/FuzzTargets.h"

#include <filesystem>
#include <string>
#include <vector>

namespace fuzz_test {

struct FuzzTarget {
  const char* name;
  bool (*run)(const std::uint8_t* data, std::size_t size);
  int mutations;          // deterministic mutations replayed per test run
  bool checksAcceptance;  // "valid-" files must be accepted, "broken-" refused
};

// Every target, in the order of fuzz/FuzzTargets.h.
inline const std::vector<FuzzTarget>& FuzzTargets() {
  static const std::vector<FuzzTarget> targets = {
      {"ply_reader", tavrin_fuzz::RunPlyReader, 3000, true},
      {"rply", tavrin_fuzz::RunRply, 3000, true},
      {"obj_info", tavrin_fuzz::RunObjInfo, 3000, true},
      {"zelk_importer", tavrin_fuzz::RunZelkImporter, 3000, true},
      {"praw_reader", tavrin_fuzz::RunPrawReader, 3000, true},
      // Small recordings have no recognised sensor resolution, so even valid
      // ones end in a refused conversion; the target checks the road there.
      {"import_praw", tavrin_fuzz::RunImportPraw, 400, false},
      {"space_binary", tavrin_fuzz::RunSpaceBinary, 3000, true},
  };
  return targets;
}

inline std::filesystem::path CorpusDir(const std::string& target) {
  return std::filesystem::path(TAVRIN_FUZZ_CORPUS_DIR) / target;
}

}  // namespace fuzz_test
