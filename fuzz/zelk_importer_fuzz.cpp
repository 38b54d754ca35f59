// libFuzzer entry point for tavrin_fuzz::FuzzZelkImporter, with the
// structure-aware ".zelk" mutator.
#include "CustomMutator.h"
#include "FuzzMain.h"
#include "StructureMutators.h"
#include "ZelkImporterTarget.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  return tavrin_fuzz::FuzzZelkImporter(data, size);
}

TAVRIN_FUZZ_CUSTOM_MUTATOR(tavrin_fuzz::MutateZelk)
