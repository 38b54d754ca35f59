// libFuzzer entry point for tavrin_fuzz::FuzzImportPraw.
#include "FuzzMain.h"
#include "ImportPrawTarget.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  return tavrin_fuzz::FuzzImportPraw(data, size);
}
