#pragma once
// The fuzz targets as the tests see them: name, the corpus folder under
// tests/data/fuzz that it shares with the other parsers of its format, entry
// function, how hard to mutate and the structure-aware mutator of the format.
#include <FuzzTargets.h>
#include <StructureMutators.h>

#include <filesystem>
#include <random>
#include <string>
#include <vector>

namespace fuzz_test {

struct FuzzTarget {
  const char* name;
  const char* corpus;
  bool (*run)(const std::uint8_t* data, std::size_t size);
  int mutations;          // deterministic mutations replayed per test run
  bool checksAcceptance;  // "valid-" files must be accepted, "broken-" (and the empty input) refused
  const char* alsoValid;  // a further prefix of files this parser must accept, or null
  // Edits the format's fields (StructureMutators.h); null for formats without a layout.
  bool (*mutateStructure)(std::string& bytes, std::mt19937& random);
};

// Every target, in the order of fuzz/FuzzTargets.h.
inline const std::vector<FuzzTarget>& FuzzTargets() {
  static const std::vector<FuzzTarget> targets = {
      {"ply_reader", "ply", tavrin_fuzz::RunPlyReader, 3000, true, nullptr, nullptr},
      // RPly reads files that the Photoneo reader refuses ("types-").
      {"rply", "ply", tavrin_fuzz::RunRply, 3000, true, "types-", nullptr},
      {"obj_info", "obj_info", tavrin_fuzz::RunObjInfo, 3000, true, nullptr, nullptr},
      {"zelk_importer", "zelk", tavrin_fuzz::RunZelkImporter, 3000, true, nullptr, tavrin_fuzz::MutateZelk},
      // Any PLY with vertices, so RPly's "types-" files too.
      {"zelk_ply_import", "ply", tavrin_fuzz::RunZelkPlyImport, 3000, true, "types-", nullptr},
      // The reader takes recordings that PhoXi Control will not play ("unplayable-").
      {"praw_reader", "praw", tavrin_fuzz::RunPrawReader, 3000, true, "unplayable-", tavrin_fuzz::MutatePraw},
      // Small recordings have no recognised sensor resolution, so even valid
      // ones end in a refused conversion; the target checks the road there.
      {"import_praw", "praw", tavrin_fuzz::RunImportPraw, 400, false, nullptr, tavrin_fuzz::MutatePraw},
      {"space_binary", "space_binary", tavrin_fuzz::RunSpaceBinary, 3000, true, nullptr, nullptr},
  };
  return targets;
}

inline std::filesystem::path CorpusDir(const std::string& corpus) {
  return std::filesystem::path(TAVRIN_FUZZ_CORPUS_DIR) / corpus;
}

}  // namespace fuzz_test
