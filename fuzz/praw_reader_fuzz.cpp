// libFuzzer entry point for tavrin_fuzz::FuzzPrawReader.
#include "FuzzMain.h"
#include "PrawReaderTarget.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  return tavrin_fuzz::FuzzPrawReader(data, size);
}
