// libFuzzer entry point for tavrin_fuzz::FuzzZelkImporter.
#include "FuzzMain.h"
#include "ZelkImporterTarget.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  return tavrin_fuzz::FuzzZelkImporter(data, size);
}
