// libFuzzer entry point for tavrin_fuzz::FuzzSpaceBinary.
#include "FuzzMain.h"
#include "SpaceBinaryTarget.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  return tavrin_fuzz::FuzzSpaceBinary(data, size);
}
