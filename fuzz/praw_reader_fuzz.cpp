// libFuzzer entry point for tavrin_fuzz::FuzzPrawReader, with the
// structure-aware ".praw" mutator.
#include "CustomMutator.h"
#include "FuzzMain.h"
#include "PrawReaderTarget.h"
#include "StructureMutators.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  return tavrin_fuzz::FuzzPrawReader(data, size);
}

TAVRIN_FUZZ_CUSTOM_MUTATOR(tavrin_fuzz::MutatePraw)
