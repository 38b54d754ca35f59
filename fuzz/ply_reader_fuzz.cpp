// libFuzzer entry point for tavrin_fuzz::FuzzPlyReader.
#include "FuzzMain.h"
#include "PlyReaderTarget.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  return tavrin_fuzz::FuzzPlyReader(data, size);
}
