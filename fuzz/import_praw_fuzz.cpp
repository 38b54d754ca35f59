// libFuzzer entry point for tavrin_fuzz::FuzzImportPraw, with the
// structure-aware ".praw" mutator.
#include "CustomMutator.h"
#include "FuzzMain.h"
#include "ImportPrawTarget.h"
#include "StructureMutators.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  return tavrin_fuzz::FuzzImportPraw(data, size);
}

TAVRIN_FUZZ_CUSTOM_MUTATOR(tavrin_fuzz::MutatePraw)
