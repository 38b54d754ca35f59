// libFuzzer entry point for tavrin_fuzz::FuzzRply.
#include "FuzzMain.h"
#include "RplyTarget.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  return tavrin_fuzz::FuzzRply(data, size);
}
