// libFuzzer entry point for tavrin_fuzz::FuzzZelkPlyImport.
#include "FuzzMain.h"
#include "ZelkPlyImportTarget.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  return tavrin_fuzz::FuzzZelkPlyImport(data, size);
}
